// The public object: construction, cached identity and shutdown.
#include "testsupport.h"

class TestFacade : public QObject
{
    Q_OBJECT
private slots:
    void constructionStartsWorkerThread();
    void baseInfoMerge();
    void extendInfoMerge();
    void setters();
    void initServerTypeIsImmediate();
    void initConnectionReachesWorkerThread();
    void stopCutsEveryConnection();
    void destructorWithoutStop();
};

void TestFacade::constructionStartsWorkerThread()
{
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);
    QVERIFY(probe.worker());
    QVERIFY(probe.thread().isRunning());
    QCOMPARE(probe.worker()->thread(), &probe.thread());
    QVERIFY(log.contains(QStringLiteral("vdi desktop grpc thread start!!!"), QtInfoMsg));

    // Queued signals find their record types by these names.
    QCOMPARE(QMetaType::type("LoginRequest"), qMetaTypeId<tagLoginRequest>());
    QCOMPARE(QMetaType::type("RefreshRequest"), qMetaTypeId<tagLoginRequest>());
    QCOMPARE(QMetaType::type("HeartbeatRequest"), qMetaTypeId<tagHeartbeatRequest>());
    facade.stop();
}

void TestFacade::baseInfoMerge()
{
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);

    tagBaseInfo first;
    first.ip = QStringLiteral("10.0.0.2");
    first.name = QStringLiteral("alice");
    first.password = QStringLiteral("pw1");
    first.vmId = 42;
    first.vmUuid = QStringLiteral("uuid-42");
    first.computerType = 3;
    first.isOpenldap = 1;
    first.ticket = QStringLiteral("t-1");
    facade.initBaseInfoParameter(first);
    QVERIFY(!log.contains(QStringLiteral("m_baseInfo.domain")));
    QVERIFY(probe.baseInfo().ticket.isNull());  // never copied
    QCOMPARE(probe.baseInfo().vmUuid, QStringLiteral("uuid-42"));

    tagBaseInfo second;  // empty texts, vmId -1, computerType -1
    second.domain = QStringLiteral("corp");
    facade.initBaseInfoParameter(second);

    const tagBaseInfo& cached = probe.baseInfo();
    QCOMPARE(cached.ip, QStringLiteral("10.0.0.2"));        // empty text keeps the cached one
    QCOMPARE(cached.name, QStringLiteral("alice"));
    QCOMPARE(cached.password, QStringLiteral("pw1"));
    QCOMPARE(cached.domain, QStringLiteral("corp"));
    QCOMPARE(cached.vmId, qint64(-1));                      // taken always, -1 included
    QCOMPARE(cached.vmUuid, QString());                     // an empty uuid erases
    QCOMPARE(cached.computerType, 3);                       // -1 is not taken
    QCOMPARE(cached.isOpenldap, 0);                         // taken always
    QVERIFY(log.contains(QStringLiteral(" m_baseInfo.domain = "), QtInfoMsg));
    QVERIFY(log.contains(QStringLiteral("initBaseInfoParameter"), QtInfoMsg));
    facade.stop();
}

void TestFacade::extendInfoMerge()
{
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);
    tagExtendInfo first;
    first.model = QStringLiteral("T1");
    first.computerType = 2;
    first.cpuArch = QStringLiteral("arm");
    first.pineletVersion = QStringLiteral("1.0");
    facade.initExtendInfoParameter(first);

    tagExtendInfo second;
    second.vendor = QStringLiteral("maker");
    facade.initExtendInfoParameter(second);

    const tagExtendInfo& cached = probe.extendInfo();
    QCOMPARE(cached.model, QStringLiteral("T1"));
    QCOMPARE(cached.vendor, QStringLiteral("maker"));
    QCOMPARE(cached.computerType, 2);
    QCOMPARE(cached.cpuArch, QStringLiteral("arm"));
    QCOMPARE(cached.pineletVersion, QStringLiteral("1.0"));
    facade.stop();
}

void TestFacade::setters()
{
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);

    // The MAC is also the device id; the address is nothing else.
    facade.setLocalMAC(QStringLiteral("aa:bb"));
    facade.setLocalIP(QStringLiteral("10.0.0.9"));
    QCOMPARE(probe.baseInfo().deviceId, QStringLiteral("aa:bb"));
    QCOMPARE(facade.getLocalMAC(), QStringLiteral("aa:bb"));
    facade.updateLocalIP(QStringLiteral("10.0.0.10"));
    QCOMPARE(facade.getLocalIP(), QStringLiteral("10.0.0.10"));
    QCOMPARE(probe.baseInfo().deviceId, QStringLiteral("aa:bb"));

    facade.setUserNameAndPasswd(QStringLiteral("bob"), QStringLiteral("pw"));
    facade.setUserName(QStringLiteral("carol"));
    QCOMPARE(facade.getUserName(), QStringLiteral("carol"));
    QCOMPARE(facade.getUserPasswd(), QStringLiteral("pw"));

    facade.updateDomain(QStringLiteral("域"));
    QCOMPARE(probe.baseInfo().domain, QStringLiteral("域"));
    QVERIFY(log.contains(QStringLiteral("[ updateDomain ]  m_baseInfo.domain ="), QtInfoMsg));
    facade.stop();
}

void TestFacade::initServerTypeIsImmediate()
{
    VdiDesktopGrpcThread facade;
    VdiWorkerProbe worker(*VdiThreadProbe(facade).worker());
    QCOMPARE(worker.serverType(), 0);
    facade.initServerType(1);
    QCOMPARE(worker.serverType(), 1);  // no queue in between
    facade.stop();
}

void TestFacade::initConnectionReachesWorkerThread()
{
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    facade.initConnection(QStringLiteral("/nonexistent/ca.pem"), QStringLiteral("127.0.0.1"), 8443, false);
    // The worker reports the missing file from its own thread.
    QTRY_VERIFY(log.contains(QStringLiteral(" pem file could not open."), QtCriticalMsg));
    QVERIFY(log.contains(QStringLiteral("/nonexistent/ca.pem")));
    facade.stop();
}

void TestFacade::stopCutsEveryConnection()
{
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);
    QSignalSpy applicationSpy(&facade, &VdiDesktopGrpcThread::saveCurrentVmUuidVDT);
    QVERIFY(applicationSpy.isValid());

    QElapsedTimer timer;
    timer.start();
    facade.stop();
    QVERIFY(timer.elapsed() < 1500);
    QVERIFY(probe.thread().wait(2000));

    // The application's own connection is gone too.
    emit facade.saveCurrentVmUuidVDT(QStringLiteral("x"));
    QCOMPARE(applicationSpy.count(), 0);

    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::stop"), QtDebugMsg));
    // No call was in flight: nothing to cancel.
    QVERIFY(!log.contains(QStringLiteral("try cancel")));
    QVERIFY(log.contains(QStringLiteral("void VdiDesktopGrpcThread::stop()"), QtInfoMsg));
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcThread::stoped"), QtInfoMsg));
    // The worker is deleted on its own thread as that thread ends.
    QTRY_VERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::~VdiDesktopGrpcWorker"), QtInfoMsg));
}

void TestFacade::destructorWithoutStop()
{
    vditest::LogCapture log;
    {
        VdiDesktopGrpcThread facade;
        log.clear();
    }
    // The destructor waits for the thread: the worker is gone by now, and only the worker
    // said anything on the way out.
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::~VdiDesktopGrpcWorker")));
    QCOMPARE(log.lines().size(), 1);
}

VDI_TEST_MAIN(TestFacade)
#include "tst_facade.moc"
