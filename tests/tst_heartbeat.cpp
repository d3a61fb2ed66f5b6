// The heartbeat: its flag rule, its timer and the facade's record.
#include "testsupport.h"
#include "fieldmap.h"

#include <algorithm>

#include <QAbstractEventDispatcher>
#include <QTimerEvent>

namespace {
const std::string kHeartbeat = "/client.ClientCore/Heartbeat";
const int kNoStub = -1;
}

class TestHeartbeat : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { VdiDesktopGrpcThread::registerMetaTypes(); }
    void flagRule_data();
    void flagRule();
    void timer();
    void facadeRecord();
    void fieldMaps_data();
    void fieldMaps() { VDI_RUN_CHECK(); }
};

void TestHeartbeat::flagRule_data()
{
    QTest::addColumn<int>("status");  // kNoStub: a worker never connected
    QTest::addColumn<int>("replyCode");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<int>("errorCode");
    QTest::newRow("ok") << 0 << 0 << true << 0;
    QTest::newRow("server says 4") << 0 << 4 << true << 4;
    QTest::newRow("server says 14") << 0 << 14 << true << 14;
    QTest::newRow("server says 9") << 0 << 9 << false << 9;
    QTest::newRow("deadline exceeded") << int(grpc::StatusCode::DEADLINE_EXCEEDED) << 0 << true << 4;
    QTest::newRow("unavailable") << int(grpc::StatusCode::UNAVAILABLE) << 0 << true << 14;
    QTest::newRow("internal") << int(grpc::StatusCode::INTERNAL) << 0 << false << 13;
    QTest::newRow("no stub") << kNoStub << 0 << false << 5;
}

// Every beat that passes the stub check starts the timer, a failing one too.
void TestHeartbeat::flagRule()
{
    QFETCH(int, status);
    QFETCH(int, replyCode);
    QFETCH(bool, flag);
    QFETCH(int, errorCode);
    vditest::TestServer server;
    client::HeartbeatResp reply;
    reply.mutable_error()->set_error_code(replyCode);
    server->setScript(kHeartbeat, vdifake::Script{grpc::StatusCode(status), {}, reply.SerializeAsString(), 0});
    VdiDesktopGrpcWorker worker;
    if (status != kNoStub)
        server.connect(worker);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::sendHeartResult);
    worker.sendHeart(tagHeartbeatRequest());
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(1).toBool(), flag);
    QCOMPARE(spy.at(0).at(0).value<tagHeartbeatReply>().error.errorCode, errorCode);
    QCOMPARE(VdiWorkerProbe(worker).heartTimerId() != -1, status != kNoStub);
}

void TestHeartbeat::timer()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    VdiWorkerProbe probe(worker);
    server.connect(worker);
    vditest::LogCapture log;

    // Before any sendHeart a start beats with an empty record; a second start does not beat.
    worker.startSendHeart();
    worker.startSendHeart();
    QCOMPARE(server->callCount(kHeartbeat), 1);
    QCOMPARE(log.count(QStringLiteral("heartbeat has started"), QtInfoMsg), 1);
    const auto empty = server->calls(kHeartbeat).at(0).request<client::HeartbeatReq>();
    QVERIFY(empty.client_base_info().vm_id() == -1 && empty.vm_ip().empty());
    const int timerId = probe.heartTimerId();
    QVERIFY(timerId != -1);
    // Every five minutes, coarse (Qt may keep a coarse timer this long as a very coarse one).
    const auto timers = QAbstractEventDispatcher::instance()->registeredTimers(&worker);
    const auto heart = std::find_if(timers.begin(), timers.end(), [&](const auto& t) { return t.timerId == timerId; });
    QVERIFY(heart != timers.end());
    QCOMPARE(heart->interval, 300000);
    QVERIFY(heart->timerType == Qt::CoarseTimer || heart->timerType == Qt::VeryCoarseTimer);

    // A tick of our timer beats with the kept record; a foreign timer does not.
    tagHeartbeatRequest request;
    request.vmIp = QStringLiteral("10.0.0.5");
    worker.sendHeart(request);
    QCOMPARE(probe.heartTimerId(), timerId);
    QTimerEvent tick(timerId), foreign(timerId + 1000);
    QCoreApplication::sendEvent(&worker, &tick);
    QCoreApplication::sendEvent(&worker, &foreign);
    QCOMPARE(server->callCount(kHeartbeat), 3);
    QCOMPARE(server->calls(kHeartbeat).at(2).request<client::HeartbeatReq>().vm_ip(), std::string("10.0.0.5"));

    worker.stopSendHeart();
    QCOMPARE(probe.heartTimerId(), -1);
    QCOMPARE(probe.heartbeatRequest().vmIp, QStringLiteral("10.0.0.5"));
    worker.sendHeart(request);
    QVERIFY(probe.heartTimerId() != -1);
}

void TestHeartbeat::facadeRecord()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    VdiThreadProbe cached(facade);
    server.connect(facade);
    tagBaseInfo base;
    base.vmId = 7;
    base.vmUuid = QStringLiteral("cached-uuid");
    base.password = QStringLiteral("s3cr3t-p4ss");
    facade.initBaseInfoParameter(base);
    tagExtendInfo extend;
    extend.clientVersion = QStringLiteral("4.5");
    facade.initExtendInfoParameter(extend);
    QSignalSpy spy(&facade, &VdiDesktopGrpcThread::recvHeartbeatResultVDT);

    vditest::LogCapture log;
    facade.sendHeart(QStringLiteral("10.1.1.1"), QString(), -1);
    facade.sendHeart(QStringLiteral("10.1.1.2"), QStringLiteral("new-uuid"), 9);
    QTRY_COMPARE(spy.count(), 2);

    // -1 keeps the cached id; an empty uuid goes out empty.
    QCOMPARE(vditest::wireMismatch(server->calls(kHeartbeat).at(0).request<client::HeartbeatReq>(),
                                   "vm_ip: '10.1.1.1' client_base_info.vm_id: 7 client_base_info.vmUuid: '' "
                                   "client_extend_info.client_version: '4.5'"),
             QString());
    QCOMPARE(vditest::wireMismatch(vditest::lastRequest<client::HeartbeatReq>(server, kHeartbeat),
                                   "vm_ip: '10.1.1.2' client_base_info.vm_id: 9 client_base_info.vmUuid: 'new-uuid'"),
             QString());
    QCOMPARE(cached.baseInfo().vmId, qint64(7));  // the cache stays
    QCOMPARE(cached.baseInfo().vmUuid, QStringLiteral("cached-uuid"));

    QVERIFY(log.contains(QStringLiteral("going to send Heart"), QtInfoMsg));
    QVERIFY(log.contains(QStringLiteral("package request:\n"), QtInfoMsg));
    QVERIFY(!log.contains(QStringLiteral("s3cr3t-p4ss")));  // the request log is redacted
    facade.stop();
}

void TestHeartbeat::fieldMaps_data()
{
    using namespace vditest;
    using H = VdiDesktopGrpcHelper;
    QTest::addColumn<Check>("check");
    using R = tagHeartbeatRequest;
    requestRow("request", &H::toHeartBeatReq, withExtend(withIdentity<R>({VDI_FIELD(R, vmIp, "vm_ip")})));
    replyRow("reply", &H::fromHeartbeatResq, withError<tagHeartbeatReply>({}));
}

VDI_TEST_MAIN(TestHeartbeat)
#include "tst_heartbeat.moc"
