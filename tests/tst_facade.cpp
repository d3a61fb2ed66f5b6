// The public object: construction, cached identity and shutdown.
#include "testsupport.h"

#include <functional>

namespace {
const std::string kHeartbeat = "/client.ClientCore/Heartbeat";

// How a merge of the cached identity treats one member of the record it is given.
enum class Merge { Always, IfNotEmpty, IfNotMinusOne, Never };

template <class Record>
struct MergeRow {
    QString name;
    std::function<QVariant(const Record&)> get;
    std::function<void(Record&, const QVariant&)> set;
    QVariant cached, given, empty;  // before the merge (distinct for every member), brought, not brought
    Merge rule;
};

template <class Record, class T>
MergeRow<Record> member(const char* name, T Record::*field, T cached, T given, T empty, Merge rule)
{
    return {QLatin1String(name), [field](const Record& r) { return QVariant::fromValue(r.*field); },
            [field](Record& r, const QVariant& v) { r.*field = v.value<T>(); }, QVariant::fromValue(cached),
            QVariant::fromValue(given), QVariant::fromValue(empty), rule};
}

template <class Record>
MergeRow<Record> text(const char* name, QString Record::*field, Merge rule)
{
    return member<Record, QString>(name, field, QStringLiteral("cached ") + QLatin1String(name),
                                   QStringLiteral("given ") + QLatin1String(name), QStringLiteral(""), rule);
}

const QList<MergeRow<tagBaseInfo>>& baseInfoRows()
{
    using B = tagBaseInfo;
    static const QList<MergeRow<B>> rows{
        member<B, qint64>("vmId", &B::vmId, 11, 21, -1, Merge::Always),
        text("ip", &B::ip, Merge::IfNotEmpty),
        text("mac", &B::mac, Merge::IfNotEmpty),
        text("domain", &B::domain, Merge::IfNotEmpty),
        text("smsCode", &B::smsCode, Merge::IfNotEmpty),
        text("name", &B::name, Merge::IfNotEmpty),
        text("authType", &B::authType, Merge::IfNotEmpty),
        text("deviceId", &B::deviceId, Merge::IfNotEmpty),
        text("deviceName", &B::deviceName, Merge::IfNotEmpty),
        text("clientType", &B::clientType, Merge::IfNotEmpty),
        text("refreshFlag", &B::refreshFlag, Merge::IfNotEmpty),
        text("protocolType", &B::protocolType, Merge::IfNotEmpty),
        text("password", &B::password, Merge::IfNotEmpty),
        member<B, int>("computerType", &B::computerType, 12, 22, -1, Merge::IfNotMinusOne),
        member<B, int>("computerType 0", &B::computerType, 12, 0, -1, Merge::IfNotMinusOne),
        text("vmUuid", &B::vmUuid, Merge::Always),
        member<B, int>("isOpenldap", &B::isOpenldap, 13, 23, 0, Merge::Always),
        text("ticket", &B::ticket, Merge::Never),
    };
    return rows;
}

const QList<MergeRow<tagExtendInfo>>& extendInfoRows()
{
    using E = tagExtendInfo;
    static const QList<MergeRow<E>> rows{
        text("model", &E::model, Merge::IfNotEmpty),
        text("vendor", &E::vendor, Merge::IfNotEmpty),
        text("osType", &E::osType, Merge::IfNotEmpty),
        text("osVersion", &E::osVersion, Merge::IfNotEmpty),
        member<E, int>("computerType", &E::computerType, 12, 22, -1, Merge::IfNotMinusOne),
        member<E, int>("computerType 0", &E::computerType, 12, 0, -1, Merge::IfNotMinusOne),
        text("clientVersion", &E::clientVersion, Merge::IfNotEmpty),
        text("clientLanguage", &E::clientLanguage, Merge::IfNotEmpty),
        text("cpuArch", &E::cpuArch, Merge::IfNotEmpty),
        text("pineletVersion", &E::pineletVersion, Merge::IfNotEmpty),
    };
    return rows;
}

// Seeds the cache with a distinct value in every member, then merges a record that brings only
// the row's member, then one that brings nothing. After each merge every member must stand as
// its own rule says; the mismatches are returned.
template <class Record>
QStringList mergeMismatches(const QList<MergeRow<Record>>& rows, int index,
                            const std::function<void(const Record&)>& seed,
                            const std::function<void(const Record&)>& merge,
                            const std::function<Record()>& cache)
{
    Record start, onlyThis, nothing;
    for (const MergeRow<Record>& row : rows) {
        row.set(start, row.cached);
        row.set(onlyThis, row.empty);
        row.set(nothing, row.empty);
    }
    rows[index].set(onlyThis, rows[index].given);
    seed(start);

    QStringList mismatches;
    for (const Record* incoming : {&onlyThis, &nothing}) {
        const Record before = cache();
        merge(*incoming);
        const Record after = cache();
        for (const MergeRow<Record>& row : rows) {
            const QVariant offered = row.get(*incoming);
            const QVariant kept = row.get(before);
            QVariant expected = offered;
            if (row.rule == Merge::Never || (row.rule == Merge::IfNotEmpty && offered.toString().isEmpty())
                || (row.rule == Merge::IfNotMinusOne && offered.toInt() == -1))
                expected = kept;
            if (row.get(after) != expected)
                mismatches << QStringLiteral("%1: %2 after merging %3 over %4, expected %5")
                                  .arg(row.name, row.get(after).toString(), offered.toString(), kept.toString(),
                                       expected.toString());
        }
    }
    return mismatches;
}
} // namespace

class TestFacade : public QObject
{
    Q_OBJECT
private slots:
    void signalArgumentsAreRegistered();  // first: no other test may have registered a name yet
    void constructionStartsWorkerThread();
    void identityMerge_data();
    void identityMerge();
    void setters();
    void stopCutsEveryConnection();
    void destructorWithoutStop();
    void destructorLetsQueuedRequestsGo();
    void destructorDropsRequestsNotStarted();
};

void TestFacade::signalArgumentsAreRegistered()
{
    // Only the facade's constructor registers names here. A queued signal whose argument type
    // is unknown by the name in its signature is dropped with a warning, in the application.
    VdiDesktopGrpcThread facade;
    QStringList unknown;
    int checked = 0;
    for (const QMetaObject* meta : {&VdiDesktopGrpcThread::staticMetaObject, &VdiDesktopGrpcWorker::staticMetaObject}) {
        for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
            const QMetaMethod method = meta->method(i);
            if (method.methodType() != QMetaMethod::Signal)
                continue;
            for (int p = 0; p < method.parameterCount(); ++p, ++checked) {
                if (method.parameterType(p) == QMetaType::UnknownType)
                    unknown << QStringLiteral("%1::%2: %3 of type %4")
                                   .arg(QLatin1String(meta->className()), QLatin1String(method.methodSignature()),
                                        QLatin1String(method.parameterNames().at(p)),
                                        QLatin1String(method.parameterTypes().at(p)));
            }
        }
    }
    QVERIFY(checked > 20);
    QVERIFY2(unknown.isEmpty(), qPrintable(unknown.join(QLatin1Char('\n'))));
}

// The worker lives on the facade's thread, where a connection reaches it; the server type is set
// at once, without a queue in between.
void TestFacade::constructionStartsWorkerThread()
{
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);
    QVERIFY(probe.worker() && probe.thread().isRunning());
    QCOMPARE(probe.worker()->thread(), &probe.thread());
    QVERIFY(log.contains(QStringLiteral("vdi desktop grpc thread start!!!"), QtInfoMsg));
    // Queued signals find their record types by these names.
    QCOMPARE(QMetaType::type("LoginRequest"), qMetaTypeId<tagLoginRequest>());
    QCOMPARE(QMetaType::type("RefreshRequest"), qMetaTypeId<tagLoginRequest>());
    QCOMPARE(QMetaType::type("HeartbeatRequest"), qMetaTypeId<tagHeartbeatRequest>());

    VdiWorkerProbe worker(*probe.worker());
    QCOMPARE(worker.serverType(), 0);
    facade.initServerType(1);
    QCOMPARE(worker.serverType(), 1);

    facade.initConnection(QStringLiteral("/nonexistent/ca.pem"), QStringLiteral("127.0.0.1"), 8443, false);
    QTRY_VERIFY(log.contains(QStringLiteral(" pem file could not open."), QtCriticalMsg));
    QVERIFY(log.contains(QStringLiteral("/nonexistent/ca.pem")));
}

void TestFacade::identityMerge_data()
{
    QTest::addColumn<bool>("base");
    QTest::addColumn<int>("row");
    for (int i = 0; i < baseInfoRows().size(); ++i)
        QTest::newRow(qPrintable(QStringLiteral("base ") + baseInfoRows()[i].name)) << true << i;
    for (int i = 0; i < extendInfoRows().size(); ++i)
        QTest::newRow(qPrintable(QStringLiteral("extend ") + extendInfoRows()[i].name)) << false << i;
}

void TestFacade::identityMerge()
{
    QFETCH(bool, base);
    QFETCH(int, row);
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);
    const QStringList mismatches =
        base ? mergeMismatches<tagBaseInfo>(
                   baseInfoRows(), row, [&](const tagBaseInfo& info) { probe.setBaseInfo(info); },
                   [&](const tagBaseInfo& info) { facade.initBaseInfoParameter(info); }, [&] { return probe.baseInfo(); })
             : mergeMismatches<tagExtendInfo>(
                   extendInfoRows(), row, [&](const tagExtendInfo& info) { probe.setExtendInfo(info); },
                   [&](const tagExtendInfo& info) { facade.initExtendInfoParameter(info); },
                   [&] { return probe.extendInfo(); });
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join(QLatin1Char('\n'))));

    // A domain that is taken is logged, once; nothing else is.
    const int logged = base && baseInfoRows()[row].name == QLatin1String("domain") ? 1 : 0;
    QCOMPARE(log.count(QStringLiteral("m_baseInfo.domain")), logged);
    QCOMPARE(log.count(QStringLiteral("[ initBaseInfoParameter ]  m_baseInfo.domain = "), QtInfoMsg), logged);
    QCOMPARE(log.count(QStringLiteral("given domain")), logged);
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
}

void TestFacade::stopCutsEveryConnection()
{
    vditest::LogCapture log;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe probe(facade);
    QSignalSpy applicationSpy(&facade, &VdiDesktopGrpcThread::saveCurrentVmUuidVDT);
    QElapsedTimer timer;
    timer.start();
    facade.stop();
    QVERIFY(timer.elapsed() < 1500);
    QVERIFY(probe.thread().wait(2000));

    // The application's own connection is gone too.
    emit facade.saveCurrentVmUuidVDT(QStringLiteral("x"));
    QCOMPARE(applicationSpy.count(), 0);

    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::stop"), QtDebugMsg));
    QVERIFY(!log.contains(QStringLiteral("try cancel")));  // no call was in flight
    QVERIFY(log.contains(QStringLiteral("void VdiDesktopGrpcThread::stop()"), QtInfoMsg));
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcThread::stoped"), QtInfoMsg));
    // The worker is deleted on its own thread as that thread ends.
    QTRY_VERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::~VdiDesktopGrpcWorker"), QtInfoMsg));

    // The worker is gone: a second stop() and a late initServerType() leave it alone.
    QVERIFY(probe.worker() == nullptr);
    facade.stop();
    facade.initServerType(1);
}

void TestFacade::destructorWithoutStop()
{
    vditest::LogCapture log;
    {
        VdiDesktopGrpcThread facade;
        log.clear();
    }
    // The destructor waited for the thread: only the worker said anything on the way out.
    QVERIFY(log.contains(QStringLiteral("VdiDesktopGrpcWorker::~VdiDesktopGrpcWorker")));
    QCOMPARE(log.lines().size(), 1);
}

// Requests queued behind a held call return at their interruption check when the facade is
// destroyed without stop(): the server sees the held call alone, which is waited for.
void TestFacade::destructorLetsQueuedRequestsGo()
{
    vditest::TestServer server;
    server->setDelay(kHeartbeat, 1000);
    vditest::LogCapture log;
    {
        VdiDesktopGrpcThread facade;
        server.connect(facade);
        for (int i = 0; i < 4; ++i)
            facade.sendHeart(QStringLiteral("10.0.0.1"), QStringLiteral("uuid"), 7);
        QVERIFY(server->waitForCalls(kHeartbeat, 1, 5000));
    }
    QCOMPARE(server->callCount(kHeartbeat), 1);
    QVERIFY(server->waitForFinished(kHeartbeat, 1, 5000));
    QCOMPARE(server->calls(kHeartbeat).front().cancelled, false);
    QCOMPARE(log.count(QStringLiteral("isInterruptionRequested")), 3);
}

// With no call in flight, a request made just before the facade is destroyed is dropped too:
// the worker's thread, held by a task until the destructor asks it to end, never starts it.
void TestFacade::destructorDropsRequestsNotStarted()
{
    vditest::TestServer server;
    int answers = 0;
    {
        VdiDesktopGrpcThread facade;
        server.connect(facade);
        QObject::connect(&facade, &VdiDesktopGrpcThread::recvHeartbeatResultVDT, [&answers] { ++answers; });
        QSemaphore held;
        QMetaObject::invokeMethod(VdiThreadProbe(facade).worker(), [&held] {
            held.release();
            QDeadlineTimer limit(5000);
            while (!QThread::currentThread()->isInterruptionRequested() && !limit.hasExpired())
                QThread::msleep(1);
        });
        QVERIFY(held.tryAcquire(1, 5000));
        facade.sendHeart(QStringLiteral("10.0.0.1"), QStringLiteral("uuid"), 7);
    }
    QCoreApplication::processEvents();
    QCOMPARE(server->callCount(kHeartbeat), 0);
    QCOMPARE(answers, 0);
}

VDI_TEST_MAIN(TestFacade)
#include "tst_facade.moc"
