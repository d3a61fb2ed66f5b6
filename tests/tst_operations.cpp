// Operations on desktops and devices: their flags and echoes, the overrun rule of the desktop
// assignment, the server's own timeout, and what goes out on the wire.
#include "testsupport.h"
#include "fieldmap.h"

#include <QTextCodec>

namespace {
const std::string kOperate = "/client.ClientCore/OperateForVm";
const std::string kSnapshot = "/client.ClientCore/Snapshot";
const std::string kApply = "/client.ClientCore/ApplyForVm";
const std::string kRegister = "/client.ClientCore/RegisterDevice";
const std::string kReport = "/client.ClientCore/ReportSuccess";
const std::string kUsb = "/client.ClientCore/USBNotify";
const std::string kVmInfo = "/client.ClientCore/queryVmDetailInfo";
const std::string kModifyName = "/client.ClientCore/ModifyVmName";
const std::string kDeviceInfo = "/client.ClientCore/ApplyForDeviceInfo";
const QString kOverrunLine = QStringLiteral("Query virtual machine : server not  ready try against, vmUuid");

tagVmNodeInfo node(int index)
{
    return tagVmNodeInfo{QStringLiteral("node-%1").arg(index), QStringLiteral("desk %1").arg(index), index};
}

tagOperateForVMRequest operation(int opType)
{
    tagOperateForVMRequest request;
    request.vmNode = node(3);
    request.opType = opType;
    return request;
}

using H = VdiDesktopGrpcHelper;

// What differs from `expected` in the last request of the method.
template <class Request>
QString sent(const vditest::TestServer& server, const std::string& method, const QString& expected)
{
    return vditest::wireMismatch(vditest::lastRequest<Request>(server, method), expected);
}

// A request whose desktop node is filled: the node travels with the record and is never sent.
template <class Record>
Record withNode()
{
    Record record;
    record.vmNode = node(7);
    return record;
}
} // namespace

class TestOperations : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void operationFlag_data();
    void operationFlag();
    void snapshotCounts_data();
    void snapshotCounts();
    void nullStubEchoes();
    void overrunsWithServerInReach();
    void serverTimeoutText_data();
    void serverTimeoutText();
    void idsOnTheWire();
    void requestsOnTheWire();
    void fieldMaps_data();
    void fieldMaps() { VDI_RUN_CHECK(); }
    void vmIdGoesOutAsNumber_data();
    void vmIdGoesOutAsNumber();
    void vmDetailsAreLogged();
};

void TestOperations::initTestCase()
{
    // Texts decoded with fromLocal8Bit read right under a UTF-8 locale only.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    VdiDesktopGrpcThread::registerMetaTypes();
}

void TestOperations::operationFlag_data()
{
    QTest::addColumn<int>("opType");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("serverCode");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<int>("errorCode");
    QTest::newRow("delivered despite the server's error") << 4 << 0 << 7 << true << 7;
    QTest::newRow("other type, server's error") << 3 << 0 << 7 << false << 7;
    QTest::newRow("delivered, failed call") << 4 << int(grpc::StatusCode::INTERNAL) << 0 << false << 13;
    QTest::newRow("other type, success") << 3 << 0 << 0 << true << 0;
}

void TestOperations::operationFlag()
{
    QFETCH(int, opType);
    QFETCH(int, status);
    QFETCH(int, serverCode);
    QFETCH(bool, flag);
    QFETCH(int, errorCode);

    vditest::TestServer server;
    vdifake::Script script = vditest::replyWithCode<client::OperateForVmResp>(serverCode);
    script.code = grpc::StatusCode(status);
    server->setScript(kOperate, script);
    VdiDesktopGrpcWorker worker;
    server.connect(worker);
    QSignalSpy spy(&worker, &VdiDesktopGrpcWorker::operateVMResult);
    vditest::LogCapture log;
    worker.operateVM(operation(opType));

    QCOMPARE(spy.count(), 1);
    const auto reply = spy.at(0).at(0).value<tagOperateForVMReply>();
    QCOMPARE(spy.at(0).at(1).toBool(), flag);
    QCOMPARE(reply.error.errorCode, errorCode);
    QCOMPARE(reply.opType, opType);
    QCOMPARE(reply.vmNode.nodeIndex, 3);
    QCOMPARE(log.count(QStringLiteral("error code = "), QtDebugMsg), status == 0 ? 1 : 0);
    QVERIFY(log.contains(QStringLiteral("receive vm operate message result from controller, result =  ")
                             + (flag ? QStringLiteral("true") : QStringLiteral("false")),
                         QtInfoMsg));
}

void TestOperations::snapshotCounts_data()
{
    QTest::addColumn<int>("opType");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("entries");
    QTest::addColumn<QString>("emitted");
    QTest::newRow("query") << 4 << 0 << 2 << "result true 4, count 2";
    QTest::newRow("empty query") << 4 << 0 << 0 << "result true 4, count 0";
    QTest::newRow("create") << 1 << 0 << 2 << "result true 1";
    QTest::newRow("failed query") << 4 << int(grpc::StatusCode::UNAVAILABLE) << 0 << "result false 4";
}

void TestOperations::snapshotCounts()
{
    QFETCH(int, opType);
    QFETCH(int, status);
    QFETCH(int, entries);
    QFETCH(QString, emitted);

    vditest::TestServer server;
    client::SnapshotResp reply;
    for (int i = 0; i < entries; ++i)
        reply.add_snapshot_list()->set_name("snap " + std::to_string(i));
    server->setScript(kSnapshot, vdifake::Script{grpc::StatusCode(status), {}, reply.SerializeAsString(), 0});
    VdiDesktopGrpcWorker worker;
    server.connect(worker);

    QStringList seen;
    tagSnapshotReply answered;
    connect(&worker, &VdiDesktopGrpcWorker::snapshotResult, this, [&](tagSnapshotReply reply, bool flag, int type) {
        answered = reply;
        seen << QStringLiteral("result %1 %2").arg(flag ? QStringLiteral("true") : QStringLiteral("false")).arg(type);
    });
    connect(&worker, &VdiDesktopGrpcWorker::snapshotQueryResult, this,
            [&](int count) { seen << QStringLiteral("count %1").arg(count); });
    tagSnapshotRequest request;
    request.vmNode = node(5);
    request.baseInfo.vmId = 77;
    request.opType = opType;
    worker.snapshot(request);

    QCOMPARE(seen.join(QStringLiteral(", ")), emitted);
    QCOMPARE(answered.vmId, QStringLiteral("77"));  // a call took place
    QCOMPARE(answered.vmNode.nodeIndex, 5);
}

// Without a stub the answers still carry the application's node back; operateVM tells what it
// is about to do but no result, and the query names its missing stub.
void TestOperations::nullStubEchoes()
{
    VdiDesktopGrpcWorker worker;  // never connected
    vditest::LogCapture log;
    QSignalSpy usb(&worker, &VdiDesktopGrpcWorker::usbNotifyResult);
    QSignalSpy apply(&worker, &VdiDesktopGrpcWorker::applyForVMResult);
    QSignalSpy report(&worker, &VdiDesktopGrpcWorker::reportStatusOfVMResult);
    worker.operateVM(operation(4));
    worker.usbNotify(withNode<tagUSBNotifyRequest>());
    worker.applyForVM(withNode<tagApplyForVMRequest>());
    worker.reportStatusOfVM(withNode<tagReportSuccessRequest>());
    worker.applyForVMOfQuery(operation(4));

    QVERIFY(log.contains(QStringLiteral("ready to send vm operate message to controller, operate type = ")));
    QVERIFY(!log.contains(QStringLiteral("receive vm operate message result")));
    QCOMPARE(usb.at(0).at(0).value<tagUSBNotifyReply>().vmNode.nodeIndex, 7);
    QCOMPARE(apply.at(0).at(0).value<tagApplyForVMReply>().vmNode.nodeIndex, 7);
    QCOMPARE(report.at(0).at(0).value<tagReportSuccessReply>().vmNode.nodeIndex, 7);
    QVERIFY(log.contains(QStringLiteral(" Query virtual machine error: stub is null."), QtCriticalMsg));
}

// Five overruns in a row with the server in reach: four "still at work", then a failure. Both
// handlers count on one run, which a success ends; an overrun with the server out of reach does
// not count.
void TestOperations::overrunsWithServerInReach()
{
    vditest::TestServer server;
    server->setStatus(kApply, grpc::StatusCode::DEADLINE_EXCEEDED);
    server->setStatus(kOperate, grpc::StatusCode::DEADLINE_EXCEEDED);
    VdiDesktopGrpcWorker worker;
    server.connect(worker);
    QSignalSpy apply(&worker, &VdiDesktopGrpcWorker::applyForVMResult);
    QSignalSpy query(&worker, &VdiDesktopGrpcWorker::applyForVMOfQueryResult);
    vditest::LogCapture log;

    for (int i = 0; i < 5; ++i) {
        log.clear();
        worker.applyForVM(tagApplyForVMRequest());
        QCOMPARE(apply.at(i).at(1).toBool(), i < 4);
        QCOMPARE(apply.at(i).at(0).value<tagApplyForVMReply>().error.errorCode, 4);
        QCOMPARE(log.count(vditest::kRebuildLine), i < 4 ? 1 : 2);  // the fifth goes the failure way twice
        QCOMPARE(log.count(QStringLiteral("Query virtual machine : server not  ready try against, vmUuid = ")), 1);
    }
    for (int i = 0; i < 5; ++i) {
        log.clear();
        worker.applyForVMOfQuery(operation(4));
        QCOMPARE(query.at(i).at(1).toBool(), i < 4);
        QCOMPARE(query.at(i).at(0).value<tagOperateForVMReply>().error.errorCode, i < 4 ? -1 : 4);
        QCOMPARE(log.count(vditest::kRebuildLine), i < 4 ? 0 : 1);
        QCOMPARE(log.count(QStringLiteral("Query virtual machine : server not  ready try against, vmUuid: ")), 1);
    }

    const auto overrunBoth = [&] {
        worker.applyForVM(tagApplyForVMRequest());
        worker.applyForVMOfQuery(operation(4));
        return apply.last().at(1).toBool() && query.last().at(1).toBool();
    };
    QVERIFY(overrunBoth());
    QVERIFY(overrunBoth());
    server->clearScript(kApply);
    worker.applyForVM(tagApplyForVMRequest());
    QCOMPARE(apply.last().at(1).toBool(), true);
    server->setStatus(kApply, grpc::StatusCode::DEADLINE_EXCEEDED);
    QVERIFY(overrunBoth());
    // Its probe knocks where nobody listens, while the call goes over the channel already made.
    VdiWorkerProbe(worker).setPort(vditest::unusedPort());
    log.clear();
    worker.applyForVM(tagApplyForVMRequest());
    server.connect(worker);
    QCOMPARE(apply.last().at(1).toBool(), true);
    QCOMPARE(apply.last().at(0).value<tagApplyForVMReply>().error.errorCode, 4);
    QVERIFY(!log.contains(kOverrunLine));
    QVERIFY(overrunBoth());
    worker.applyForVM(tagApplyForVMRequest());
    QCOMPARE(apply.last().at(1).toBool(), false);
}

// The server answers with a timeout of its own: a server still in reach gets our text in place
// of its own; the query handler never looks.
void TestOperations::serverTimeoutText_data()
{
    QTest::addColumn<QString>("handler");
    QTest::addColumn<bool>("inReach");
    QTest::addColumn<QString>("text");
    const QString own = QStringLiteral("server's own words");
    QTest::newRow("apply, in reach") << "apply" << true << QStringLiteral(" 服务器响应连接虚拟机请求超时，请稍后重试。 ");
    QTest::newRow("apply, out of reach") << "apply" << false << own;
    QTest::newRow("register, in reach") << "register" << true << QStringLiteral(" 服务器响应注册设备请求超时。 ");
    QTest::newRow("register, out of reach") << "register" << false << own;
    QTest::newRow("report, in reach") << "report" << true << QStringLiteral(" 服务器响应上线请求超时，请稍后重新连接。 ");
    QTest::newRow("report, out of reach") << "report" << false << own;
    QTest::newRow("query, in reach") << "query" << true << own;
}

void TestOperations::serverTimeoutText()
{
    QFETCH(QString, handler);
    QFETCH(bool, inReach);
    QFETCH(QString, text);

    vditest::TestServer server;
    const auto words = [](auto& reply) { reply.mutable_error()->set_error_msg_zh("server's own words"); };
    server->setScript(kApply, vditest::replyWithCode<client::ApplyForVmResp>(4, words));
    server->setScript(kRegister, vditest::replyWithCode<client::RegisterDevResp>(4, words));
    server->setScript(kReport, vditest::replyWithCode<client::ReportSuccessResp>(4, words));
    server->setScript(kOperate, vditest::replyWithCode<client::OperateForVmResp>(4, words));
    VdiDesktopGrpcWorker worker;
    server.connect(worker);
    // Out of reach: the probe after the answer knocks where nobody listens.
    if (!inReach)
        VdiWorkerProbe(worker).setPort(vditest::unusedPort());
    vditest::LogCapture log;

    tagErrorData error;
    bool flag = true;
    const auto take = [&](const auto& reply, bool answered) {
        error = reply.error;
        flag = answered;
    };
    connect(&worker, &VdiDesktopGrpcWorker::applyForVMResult, this, take);
    connect(&worker, &VdiDesktopGrpcWorker::registerDeviceResult, this, take);
    connect(&worker, &VdiDesktopGrpcWorker::reportStatusOfVMResult, this, take);
    connect(&worker, &VdiDesktopGrpcWorker::applyForVMOfQueryResult, this, take);
    if (handler == QLatin1String("apply"))
        worker.applyForVM(tagApplyForVMRequest());
    else if (handler == QLatin1String("register"))
        worker.registerDevice(tagRegisterDeviceRequest());
    else if (handler == QLatin1String("report"))
        worker.reportStatusOfVM(tagReportSuccessRequest());
    else
        worker.applyForVMOfQuery(operation(1));

    QCOMPARE(flag, false);
    QCOMPARE(error.errorCode, 4);
    QCOMPARE(error.errorMsgZh, text);
    QCOMPARE(log.contains(QStringLiteral("seccess to connect remote host: ")), inReach && handler != QLatin1String("query"));
    QVERIFY(!log.contains(vditest::kRebuildLine));  // the server answered: nothing to rebuild
}

// Ids arrive as text: a 64-bit read for operateVM, an int read elsewhere, where 2^31 gives 0;
// a report names its own desktop.
void TestOperations::idsOnTheWire()
{
    vditest::TestServer server;
    VdiDesktopGrpcThread facade;
    server.connect(facade);
    for (const QString& id : {QStringLiteral("2147483648"), QStringLiteral("2147483647")}) {
        const QString narrow = id == QLatin1String("2147483648") ? QStringLiteral("0") : id;
        server->clearCalls();
        facade.operateVM(node(1), id, QStringLiteral("u"), VdiGrpc::tagOperateVMType(1), VdiGrpc::tagOperateVMWay(0), 0,
                         QString());
        facade.snapshot(node(1), id, QStringLiteral("u"), VdiGrpc::SnapshotQuery, QString(), QString());
        facade.modifyVMName(node(1), id, QStringLiteral("u"), QStringLiteral("n"), 0, false);
        facade.applyForVM(node(1), id, id, QStringLiteral("u"), QString(), QString(), 0);
        QVERIFY(server->waitForCalls(kApply, 1, 5000));

        QCOMPARE(sent<client::OperateForVmReq>(server, kOperate, "client_base_info.vm_id: " + id), QString());
        QCOMPARE(sent<client::SnapshotReq>(server, kSnapshot, "content.vm_id: " + narrow), QString());
        QCOMPARE(sent<client::ModifyVmNameReq>(server, kModifyName, "client_base_info.vm_id: " + narrow), QString());
        const QString applied = QStringLiteral("client_base_info.vm_id: %1 id: %1").arg(narrow);
        QCOMPARE(sent<client::ApplyForVmReq>(server, kApply, applied), QString());
    }

    // Reports about another desktop send its id, but leave the desktop of the last operation in
    // the cache.
    server->clearCalls();
    facade.operateVM(node(1), QStringLiteral("11"), QStringLiteral("uuid-11"), VdiGrpc::tagOperateVMType(1),
                     VdiGrpc::tagOperateVMWay(0), 0, QString());
    facade.applyForDeviceInfo(node(2), QStringLiteral("22"), QStringLiteral("uuid-22"));
    facade.reportStatusOfVM(node(2), QStringLiteral("22"), QStringLiteral("uuid-22"), QStringLiteral("10.1.1.22"));
    facade.usbNotify(node(2), QStringLiteral("22"), QStringLiteral("uuid-22"), QString(), QString());
    facade.applyForVMOfQuery(node(3), QStringLiteral("11"), QStringLiteral("uuid-11"), QString(), 0,
                             VdiGrpc::tagOperateVMWay(0), VdiGrpc::tagOperateVMType(1));
    QVERIFY(server->waitForCalls(kOperate, 2, 5000));

    QCOMPARE(sent<client::ApplyForDeviceInfoReq>(server, kDeviceInfo, "client_base_info.vm_id: 22"), QString());
    QCOMPARE(sent<client::ReportSuccessReq>(server, kReport, "content.vm_id: 22 content.computer_type: 0"), QString());
    QCOMPARE(sent<client::USBNotifyReq>(server, kUsb, "client_base_info.vm_id: 22 target_vm.vm_id: '22'"), QString());
    const QString query = QStringLiteral("client_base_info.vm_id: 11 client_base_info.vmUuid: 'uuid-11'");
    QCOMPARE(sent<client::OperateForVmReq>(server, kOperate, query), QString());
    facade.stop();
}

void TestOperations::requestsOnTheWire()
{
    vditest::TestServer server;
    VdiDesktopGrpcWorker worker;
    server.connect(worker);

    // The load figures wait 10 s, whatever the timeout, and carry no metadata of ours.
    worker.setTimeout(3);
    worker.queryVmInfo(tagQueryVmInfoReq());
    const auto call = server->calls(kVmInfo).at(0);
    QVERIFY2(call.deadlineSeconds > 9.0 && call.deadlineSeconds <= 10.2, QByteArray::number(call.deadlineSeconds));
    QCOMPARE(call.metadata.count("gatewayaccesstoken"), size_t(0));
    QCOMPARE(call.metadata.count("client-language"), size_t(0));

    worker.usbNotify(tagUSBNotifyRequest());
    const auto usb = server->calls(kUsb).at(0).request<client::USBNotifyReq>();
    QVERIFY(usb.has_client_info());
    QVERIFY(usb.has_target_vm());
}

void TestOperations::fieldMaps_data()
{
    using namespace vditest;
    QTest::addColumn<Check>("check");
    using O = tagOperateForVMRequest;
    requestRow("operate request", &H::toOperateForVMReq,
               withIdentity<O>({VDI_FIELD(O, opType, "op_type"), VDI_FIELD(O, forceFlag, "force_flag"),
                                VDI_FIELD(O, startDomain, "start_domain"), VDI_FIELD(O, port, "port")}), withNode<O>());
    using S = tagSnapshotRequest;
    requestRow("snapshot request", &H::toSnapshotReq,
               withIdentity<S>({VDI_FIELD(S, opType, "op_type"), VDI_FIELD(S, name, "name"),
                                VDI_FIELD(S, description, "description")}, QStringLiteral("content")), withNode<S>());
    using M = tagModifyVMNameRequest;
    requestRow("rename request", &H::toModifyVMNameReq, withIdentity<M>({VDI_FIELD(M, vmNameNew, "vm_name_new")}),
               withNode<M>());
    using A = tagApplyForVMRequest;
    requestRow("apply request", &H::toApplyForVMReq,
               withIdentity<A>({VDI_FIELD(A, id, "id"), VDI_FIELD(A, poolName, "pool_name"), VDI_FIELD(A, port, "port"),
                                VDI_FIELD(A, startDomain, "start_domain")}), withNode<A>());
    using D = tagApplyForDeviceInfoRequest;
    requestRow("device info request", &H::toApplyForDeviceInfoReq, withIdentity<D>({}), withNode<D>());
    using P = tagDeskTopPoolRequest;
    requestRow("pool request", &H::toDeskTopPoolReq, {VDI_FIELD(P, vmId, "vmId"), VDI_FIELD(P, vmUuid, "vmUuid")});
    using Q = tagQueryVmInfoReq;
    requestRow("load figures request", &H::toVmInfoReq,
               {VDI_FIELD(Q, vmUuid, "vmUuid"), VDI_FIELD(Q, deviceType, "deviceType")}, Q(), {"vmId"});
    // The record's own address and names, not the identity's, go into the message's own fields.
    using G = tagRegisterDeviceRequest;
    requestRow("register request", &H::toRegisterDevReq,
               withExtend(withIdentity<G>({VDI_FIELD(G, ip, "ip"), VDI_FIELD(G, mac, "mac"),
                                           VDI_FIELD(G, deviceId, "device_id"), VDI_FIELD(G, deviceName, "device_name"),
                                           VDI_FIELD(G, registerType, "register_type")})));
    using R = tagReportSuccessRequest;
    requestRow("report request", &H::toReportSuccessReq,
               withExtend(withIdentity<R>({VDI_FIELD(R, vmIp, "vm_ip")}, QStringLiteral("content"))), withNode<R>());
    using U = tagUSBNotifyRequest;
    requestRow("usb request", &H::toUSBNotifyReq,
               withIdentity<U>({VDI_FIELD(U, password, "client_info.password"),
                                VDI_FIELD(U, readOnly, "client_info.read_only"), VDI_FIELD(U, vmId, "target_vm.vm_id"),
                                VDI_FIELD(U, vmUuid, "target_vm.vmUuid")}), withNode<U>());
    using T = tagRedirectStatusReust;
    using E = tagRedirectStatusInfoReust;
    const FieldMap<E> device{VDI_FIELD(E, redirectDeviceName, "redirect_device_name"), VDI_FIELD(E, pid, "pid"),
                             VDI_FIELD(E, vid, "vid"), VDI_FIELD(E, redirectDeviceType, "redirect_device_type"),
                             VDI_FIELD(E, subClass, "subClass"), VDI_FIELD(E, redirectStatus, "redirect_status"),
                             VDI_FIELD(E, description, "description")};
    requestRow("redirect request", &H::toRedirectStatusReq,
               withIdentity<T>({VDI_FIELD(T, vmUuid, "vm_uuid")}) + VDI_LIST(T, redirectList, "redirect_list", device));

    using RD = tagRegisterDeviceReply;
    replyRow("register reply", &H::fromRegisterDevReq, withError<RD>({VDI_FIELD(RD, registerId, "register_id")}));
    using RR = tagReportSuccessReply;
    replyRow("report reply", &H::fromReportSuccessResq, withErrorAndNode<RR>({VDI_KEPT(RR, vmId)}));
    replyRow("usb reply", &H::fromUSBNotifyResq, withErrorAndNode<tagUSBNotifyReply>({}));
    using RN = tagModifyVMNameReply;
    replyRow("rename reply", &H::fromModifyVMNameResq, withErrorAndNode<RN>({VDI_KEPT(RN, vmNameNew)}));
    replyRow("void reply", &H::fromVoidResp, withError<tagVoidReply>({VDI_KEPT(tagVoidReply, reserved)}));
    using RA = tagApplyForVMReply;
    replyRow("apply reply", &H::fromApplyForVMResp,
             withErrorAndNode<RA>({
                 VDI_FIELD(RA, name, "name"), VDI_FIELD(RA, password, "password"), VDI_FIELD(RA, hostIp, "host_ip"),
                 VDI_FIELD(RA, hostIps, "host_ips"), VDI_FIELD(RA, spicePassword, "spice_password"),
                 VDI_FIELD(RA, userGroup, "user_group"), VDI_FIELD(RA, userNameOrDeviceName, "userNameOrDeviceName"),
                 VDI_FIELD(RA, grouplist, "grouplist"),
                 // Echoed from the request by the handler, or the application's own.
                 VDI_KEPT(RA, reservedNumber), VDI_KEPT(RA, reservedText), VDI_KEPT(RA, id), VDI_KEPT(RA, port),
                 VDI_KEPT(RA, startDomain)})
                 + VDI_PART(RA, vmInfo, "vm", vmInfoMap()));
    using RO = tagOperateForVMReply;
    replyRow("operate reply", &H::fromOperateForVMResq,
             withErrorAndNode<RO>({VDI_FIELD(RO, spicePort, "spice_port"), VDI_FIELD(RO, hostIp, "hostIp"),
                                   VDI_FIELD(RO, gatewayToken, "gatewayToken"), VDI_FIELD(RO, tlsPort, "tlsPort"),
                                   VDI_KEPT(RO, opType)})
                 + VDI_PART(RO, vmInfo, "vm", vmInfoMap()),
             {"isUsedGateway"});
    using RV = tagRecoverVMReply;
    replyRow("recover reply", &H::fromRecoverVMResq,
             withErrorAndNode<RV>({VDI_FIELD(RV, vmId, "vm_id"), VDI_FIELD(RV, progress, "progress"),
                                   VDI_FIELD(RV, vmUuid, "vmUuid")}));
    using RS = tagSnapshotReply;
    using SI = tagSnapshotInfo;
    replyRow("snapshot reply", &H::fromSnapshotResq,
             withErrorAndNode<RS>({VDI_KEPT(RS, vmId)})
                 + VDI_LIST(RS, snapshotList, "snapshot_list",
                            FieldMap<SI>({VDI_FIELD(SI, name, "name"), VDI_FIELD(SI, description, "description")})));
    using RI = tagApplyForDeviceInfoReply;
    using DI = tagDevice;
    replyRow("device info reply", &H::fromApplyForDeviceInfoResq,
             withErrorAndNode<RI>({})
                 + VDI_LIST(RI, deviceList, "device_list",
                            FieldMap<DI>({VDI_FIELD(DI, deviceId, "device_id"),
                                          VDI_FIELD(DI, address.mac, "vm_address.mac"),
                                          VDI_FIELD(DI, address.ipList, "vm_address.ip_list")})));
    using RP = tagDeskTopPoolReply;
    replyRow("pool reply", &H::fromDeskTopPoolResq, withError<RP>({}) + VDI_PART(RP, pool, "pool", poolMap()),
             {"pool.authDevice.", "pool.imageUuid", "pool.accessAccount", "pool.accessPassword", "mac",
              "idvUsbPolicy.", "computerName", "vmAutoLogin", "recoverUuid", "createRestorePoint", "pwdOption",
              "fixedPwd"});
    using RL = tagQueryVmInfoResp;
    replyRow("load figures reply", &H::fromVmInfoResp,
             withError<RL>({VDI_LOW32(RL, memSize, "memSize"), VDI_FIELD(RL, memRate, "memRate"),
                            VDI_LOW32(RL, cpuSize, "cpuSize"), VDI_FIELD(RL, cpuRate, "cpuRate")}));
}

void TestOperations::vmIdGoesOutAsNumber_data()
{
    QTest::addColumn<QString>("vmId");
    QTest::addColumn<int>("wire");
    QTest::newRow("number") << QStringLiteral("42") << 42;
    QTest::newRow("negative") << QStringLiteral("-7") << -7;
    QTest::newRow("no number") << QStringLiteral("abc") << 0;
    QTest::newRow("above int range") << QStringLiteral("2147483648") << 0;
    QTest::newRow("empty") << QString() << 0;
}

void TestOperations::vmIdGoesOutAsNumber()
{
    QFETCH(QString, vmId);
    QFETCH(int, wire);
    tagQueryVmInfoReq request;
    request.vmId = vmId;
    client::VmReq message;
    H::toVmInfoReq(request, message);
    QCOMPARE(message.vmid(), wire);
}

void TestOperations::vmDetailsAreLogged()
{
    client::VmDetailInfoResp reply;
    reply.set_cpurate("12%");
    vditest::LogCapture log;
    tagQueryVmInfoResp converted;
    H::fromVmInfoResp(reply, converted);
    QVERIFY(log.contains(QStringLiteral(" reply:"), QtDebugMsg));
    QVERIFY(log.contains(QStringLiteral("12%"), QtDebugMsg));
}

VDI_TEST_MAIN(TestOperations)
#include "tst_operations.moc"
