// Error words, identity conversions and the conversions of the desktop and device operations.
#include "testsupport.h"
#include "wirefields.h"

#include <algorithm>
#include <functional>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include "vdidesktopgrpchelper.h"

using H = VdiDesktopGrpcHelper;

namespace {
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

using vditest::wireText;

// The paths of the fields that the message holds, sub-messages followed; a repeated field
// counts once, by its own name.
QStringList setPaths(const Message& message, const QString& prefix = QString())
{
    std::vector<const FieldDescriptor*> fields;
    message.GetReflection()->ListFields(message, &fields);
    QStringList paths;
    for (const FieldDescriptor* field : fields) {
        const QString path = prefix + QString::fromStdString(field->name());
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE && !field->is_repeated())
            paths << setPaths(message.GetReflection()->GetMessage(message, field), path + QLatin1Char('.'));
        else
            paths << path;
    }
    return paths;
}

QString give(int& member, int number)
{
    member = number;
    return QString::number(member);
}
QString give(qint64& member, int number)
{
    member = 5000000000LL + number;  // beyond 32 bits
    return QString::number(member);
}
QString give(QString& member, int number)
{
    member = QStringLiteral("text %1").arg(number);
    return member;
}

// A member of a request record and the wire field it goes to. `fill` gives the member a value made
// from a number and returns the text that the wire field must then show.
template <class Record>
struct Outgoing {
    const char* member;
    const char* wire;
    std::function<QString(Record&, int)> fill;
};

#define OUT(Record, member, wire)                                                                  \
    Outgoing<Record>                                                                               \
    {                                                                                              \
        #member, wire, [](Record& r, int number) { return give(r.member, number); }                \
    }

// Gives each member of the table a value of its own, numbers counting up from `first`; returns
// what each wire field must show.
template <class Record>
QStringList fillMembers(const std::vector<Outgoing<Record>>& table, Record& record, int first = 101)
{
    QStringList expected;
    for (const Outgoing<Record>& field : table)
        expected << field.fill(record, first++);
    return expected;
}

// Fills the members of the table, converts, and compares every wire field with its member. Every
// other field that the conversion set must lie in one of `covered`, the sub-messages that the test
// compares as a whole. The mismatches are returned.
template <class Record, class Wire>
QStringList outgoingMismatches(const std::vector<Outgoing<Record>>& table, Record& record,
                               void (*convert)(const Record&, Wire&), Wire& message,
                               const QStringList& covered = {})
{
    const QStringList expected = fillMembers(table, record);
    convert(record, message);
    QStringList mismatches;
    QStringList unmapped = setPaths(message);
    for (size_t i = 0; i < table.size(); ++i) {
        const QString wire = QLatin1String(table[i].wire);
        if (wireText(message, wire) != expected.at(int(i)))
            mismatches << QStringLiteral("%1 is \"%2\", %3 is \"%4\"")
                              .arg(wire, wireText(message, wire), QString::fromLatin1(table[i].member), expected.at(int(i)));
        unmapped.removeAll(wire);
    }
    for (const QString& path : unmapped) {
        const bool isCovered = std::any_of(covered.begin(), covered.end(), [&path](const QString& part) {
            return path == part || path.startsWith(part + QLatin1Char('.'));
        });
        if (!isCovered)
            mismatches << QStringLiteral("%1 is set by no member").arg(path);
    }
    return mismatches;
}

QString shortText(const Message& message)
{
    return QString::fromStdString(message.ShortDebugString());
}

const tagVmNodeInfo kNode{QStringLiteral("node-7"), QStringLiteral("desk 7"), 7};  // never sent
} // namespace

class TestConversions : public QObject
{
    Q_OBJECT
private slots:
    void toErrorData_data();
    void toErrorData();
    void toErrorDataKeepsTextOutsideTable();
    void grpc2ErrorData();
    void fromStdStringKeepsEmbeddedNul();
    void toStdString_data();
    void toStdString();
    void clientBaseInfo();
    void gatewayBaseInfo();
    void extendInfo();
    void operateForVMRequest();
    void snapshotRequest();
    void modifyVMNameRequest();
    void applyForVMRequest();
    void applyForDeviceInfoRequest();
    void vmInfoRequest_data();
    void vmInfoRequest();
    void registerDeviceRequest();
    void reportSuccessRequest();
    void usbNotifyRequest();
    void usbNotifyRequestCreatesBothParts();
    void redirectStatusRequest();
    void redirectStatusRequestWithoutDevices();
    void operationReplies();
};

void TestConversions::toErrorData_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("zh");
    QTest::newRow("do-not-use") << -1 << QStringLiteral("强制用户包括默认分支。");
    QTest::newRow("ok") << 0 << QStringLiteral("before");
    QTest::newRow("cancelled") << 1 << QStringLiteral("操作被取消。");
    QTest::newRow("deadline") << 4
                              << QStringLiteral("通信请求超时，认证失败，请检查服务器地址或网络相关设置。");
    QTest::newRow("unavailable") << 14 << QStringLiteral("服务器连接失败，请检查网络等相关配置或联系管理员。");
    QTest::newRow("unauthenticated") << 16 << QStringLiteral("该操作请求没有有效的身份验证凭据。");
    QTest::newRow("above-table") << 17 << QStringLiteral("before");
    QTest::newRow("below-table") << -2 << QStringLiteral("before");
}

void TestConversions::toErrorData()
{
    QFETCH(int, code);
    QFETCH(QString, zh);
    tagErrorData data;
    data.errorMsgZh = QStringLiteral("before");
    VdiDesktopGrpcHelper::toErrorData(grpc::Status(grpc::StatusCode(code), "transport says \xE4\xBD\xA0"), data);
    QCOMPARE(data.errorCode, code);
    QCOMPARE(data.errorMsgZh, zh);
    // The English text is the transport's own message, even for OK.
    QCOMPARE(data.errorMsgEn, QStringLiteral("transport says 你"));
}

void TestConversions::toErrorDataKeepsTextOutsideTable()
{
    // A record nobody filled keeps its empty text for codes without an entry. The code lies
    // past the table but inside what grpc::StatusCode can hold (its enumerators span -1 to 16,
    // so its values -32 to 31): a value beyond that would be undefined behaviour.
    tagErrorData data;
    VdiDesktopGrpcHelper::toErrorData(grpc::Status(grpc::StatusCode(31), ""), data);
    QCOMPARE(data.errorCode, 31);
    QVERIFY(data.errorMsgZh.isEmpty());
    QVERIFY(data.errorMsgEn.isEmpty());
}

void TestConversions::grpc2ErrorData()
{
    // The server's code 4 keeps the server's own words: no table applies.
    common::ErrorData error;
    error.set_error_code(4);
    error.set_error_msg_zh("服务器忙");
    error.set_error_msg_en("busy");
    tagErrorData data;
    VdiDesktopGrpcHelper::grpc2ErrorData(error, data);
    QCOMPARE(data.errorCode, 4);
    QCOMPARE(data.errorMsgZh, QStringLiteral("服务器忙"));
    QCOMPARE(data.errorMsgEn, QStringLiteral("busy"));

    // A reply without an error block reads as success.
    client::DeviceConfigInfoResp reply;
    QVERIFY(!reply.has_error());
    tagErrorData fromAbsent;
    VdiDesktopGrpcHelper::grpc2ErrorData(reply.error(), fromAbsent);
    QCOMPARE(fromAbsent.errorCode, 0);
    QVERIFY(fromAbsent.errorMsgZh.isEmpty());
    QVERIFY(fromAbsent.errorMsgEn.isEmpty());
}

void TestConversions::fromStdStringKeepsEmbeddedNul()
{
    const std::string text("ab\0c\xE4\xB8\xAD", 7);
    const QString converted = VdiDesktopGrpcHelper::fromStdString(text);
    QCOMPARE(converted.size(), 5);
    QCOMPARE(converted.at(2), QChar(0));
    QCOMPARE(converted.mid(3), QStringLiteral("c中"));
}

void TestConversions::toStdString_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("null") << QString();
    QTest::newRow("empty") << QStringLiteral("");
    QTest::newRow("ascii") << QStringLiteral("zhangsan-thinclient 4.5.2");
    QTest::newRow("embedded nul") << QString::fromUtf16(u"a\0b", 3);
    QTest::newRow("chinese after ascii") << QStringLiteral("desk 张三");
    QTest::newRow("latin-1 only") << QStringLiteral("caf\u00e9");
    QTest::newRow("surrogate pair") << QString::fromUtf16(u"x\U0001F600");
}

// Every text goes out as its UTF-8 bytes, the ASCII fast way or not.
void TestConversions::toStdString()
{
    QFETCH(QString, text);
    const std::string bytes = VdiDesktopGrpcHelper::toStdString(text);
    QCOMPARE(QByteArray::fromStdString(bytes), text.toUtf8());
    QCOMPARE(VdiDesktopGrpcHelper::fromStdString(bytes), text);
}

static tagBaseInfo filledBaseInfo()
{
    tagBaseInfo info;
    info.ip = QStringLiteral("10.1.2.3");
    info.mac = QStringLiteral("aa:bb:cc:dd:ee:ff");
    info.vmId = 5000000000LL;
    info.domain = QStringLiteral("corp");
    info.smsCode = QStringLiteral("1234");
    info.name = QStringLiteral("张三");
    info.authType = QString::number(VdiGrpc::LoginByLdap);
    info.deviceId = QStringLiteral("dev-1");
    info.deviceName = QStringLiteral("terminal");
    info.clientType = QStringLiteral("7");
    info.refreshFlag = QStringLiteral("0");
    info.protocolType = QStringLiteral("vdp");
    info.password = QStringLiteral("secret");
    info.computerType = 3;
    info.vmUuid = QStringLiteral("uuid-1");
    info.isOpenldap = 1;
    info.ticket = QStringLiteral("ticket-1");
    return info;
}

void TestConversions::clientBaseInfo()
{
    client::ClientBaseInfo message;
    VdiDesktopGrpcHelper::baseInfo2Grpc(filledBaseInfo(), message);
    QCOMPARE(message.ip(), std::string("10.1.2.3"));
    QCOMPARE(message.mac(), std::string("aa:bb:cc:dd:ee:ff"));
    QCOMPARE(message.vm_id(), int64_t(5000000000LL));
    QCOMPARE(message.domain(), std::string("corp"));
    QCOMPARE(message.sms_code(), std::string("1234"));
    QCOMPARE(QString::fromStdString(message.name()), QStringLiteral("张三"));
    QCOMPARE(message.auth_type(), std::string("3"));
    QCOMPARE(message.device_id(), std::string("dev-1"));
    QCOMPARE(message.device_name(), std::string("terminal"));
    QCOMPARE(message.client_type(), std::string("7"));
    QCOMPARE(message.refresh_flag(), std::string("0"));
    QCOMPARE(message.protocol_type(), std::string("vdp"));
    QCOMPARE(message.password(), std::string("secret"));
    QCOMPARE(message.computer_type(), 3);
    QCOMPARE(message.vmuuid(), std::string("uuid-1"));
    QCOMPARE(message.isopenldap(), 1);
    QCOMPARE(message.ticket(), std::string("ticket-1"));
    // Never set by the library.
    QVERIFY(message.h5_clientuuid().empty());
    QCOMPARE(message.connect_type(), 0);
    QCOMPARE(message.ssologin(), 0);
    QVERIFY(message.encryptpassword().empty());
    QVERIFY(message.spmid().empty());

    // Defaults go out as they stand.
    client::ClientBaseInfo defaults;
    VdiDesktopGrpcHelper::baseInfo2Grpc(tagBaseInfo(), defaults);
    QCOMPARE(defaults.vm_id(), int64_t(-1));
    QCOMPARE(defaults.computer_type(), -1);
}

void TestConversions::gatewayBaseInfo()
{
    gateway::ClientBaseInfo message;
    VdiDesktopGrpcHelper::baseInfo2Grpc(filledBaseInfo(), message);
    QCOMPARE(QString::fromStdString(message.name()), QStringLiteral("张三"));
    QCOMPARE(message.password(), std::string("secret"));
    QCOMPARE(message.vm_id(), int64_t(5000000000LL));
    QCOMPARE(message.protocol_type(), std::string("vdp"));
    QCOMPARE(message.computer_type(), 3);
    // The gateway's message has no place for vmUuid, isOpenldap and ticket: nothing of them
    // may leak into the unknown-field set either.
    QVERIFY(message.GetReflection()->GetUnknownFields(message).empty());
    QCOMPARE(message.GetDescriptor()->field_count(), 14);
}

static tagExtendInfo filledExtendInfo()
{
    tagExtendInfo info;
    info.model = QStringLiteral("T100");
    info.vendor = QStringLiteral("maker");
    info.osType = QStringLiteral("linux");
    info.osVersion = QStringLiteral("12");
    info.computerType = 2;
    info.clientVersion = QStringLiteral("1.2.3");
    info.clientLanguage = QStringLiteral("zh_CN");
    info.cpuArch = QStringLiteral("arm");
    info.pineletVersion = QStringLiteral("9.9");
    return info;
}

void TestConversions::extendInfo()
{
    const tagExtendInfo info = filledExtendInfo();

    client::ClientExtendInfo message;
    VdiDesktopGrpcHelper::extendInfo2Grpc(info, message);
    QCOMPARE(message.model(), std::string("T100"));
    QCOMPARE(message.vendor(), std::string("maker"));
    QCOMPARE(message.os_type(), std::string("linux"));
    QCOMPARE(message.os_version(), std::string("12"));
    QCOMPARE(message.computer_type(), 2);
    QCOMPARE(message.client_version(), std::string("1.2.3"));
    QCOMPARE(message.client_language(), std::string("zh_CN"));
    QCOMPARE(message.cpu_arch(), std::string("arm"));
    QCOMPARE(message.pinelet_version(), std::string("9.9"));
    QCOMPARE(message.classroom_id(), int64_t(0));
    QCOMPARE(message.forcelogin(), false);
    QCOMPARE(message.classroom_num(), 0);
    QCOMPARE(message.scene(), 0);

    gateway::ClientExtendInfo gatewayMessage;
    VdiDesktopGrpcHelper::extendInfo2Grpc(info, gatewayMessage);
    QCOMPARE(gatewayMessage.client_language(), std::string("zh_CN"));
    QCOMPARE(gatewayMessage.client_version(), std::string("1.2.3"));
    QCOMPARE(gatewayMessage.vendor(), std::string("maker"));
    QCOMPARE(gatewayMessage.model(), std::string("T100"));
    QCOMPARE(gatewayMessage.os_type(), std::string("linux"));
    QCOMPARE(gatewayMessage.os_version(), std::string("12"));
    QVERIFY(gatewayMessage.device_type().empty());
}

// The identity and the extend info as their own conversions give them.
static QString identityText(const tagBaseInfo& info)
{
    client::ClientBaseInfo message;
    H::baseInfo2Grpc(info, message);
    return shortText(message);
}

static QString extendText(const tagExtendInfo& info)
{
    client::ClientExtendInfo message;
    H::extendInfo2Grpc(info, message);
    return shortText(message);
}

void TestConversions::operateForVMRequest()
{
    using R = tagOperateForVMRequest;
    R request;
    request.vmNode = kNode;
    request.baseInfo = filledBaseInfo();
    client::OperateForVmReq message;
    const QStringList mismatches = outgoingMismatches(
        {OUT(R, opType, "op_type"), OUT(R, forceFlag, "force_flag"), OUT(R, startDomain, "start_domain"),
         OUT(R, port, "port")},
        request, &H::toOperateForVMReq, message, {QStringLiteral("client_base_info")});
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
    QCOMPARE(shortText(message.client_base_info()), identityText(request.baseInfo));
    QVERIFY(message.op_description().empty());
}

void TestConversions::snapshotRequest()
{
    using R = tagSnapshotRequest;
    R request;
    request.vmNode = kNode;
    request.baseInfo = filledBaseInfo();
    client::SnapshotReq message;
    const QStringList mismatches = outgoingMismatches(
        {OUT(R, opType, "op_type"), OUT(R, name, "name"), OUT(R, description, "description")}, request,
        &H::toSnapshotReq, message, {QStringLiteral("content")});
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
    QCOMPARE(shortText(message.content()), identityText(request.baseInfo));
}

void TestConversions::modifyVMNameRequest()
{
    using R = tagModifyVMNameRequest;
    R request;
    request.vmNode = kNode;
    request.baseInfo = filledBaseInfo();
    client::ModifyVmNameReq message;
    const QStringList mismatches = outgoingMismatches({OUT(R, vmNameNew, "vm_name_new")}, request,
                                                      &H::toModifyVMNameReq, message,
                                                      {QStringLiteral("client_base_info")});
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
    QCOMPARE(shortText(message.client_base_info()), identityText(request.baseInfo));
}

void TestConversions::applyForVMRequest()
{
    using R = tagApplyForVMRequest;
    R request;
    request.vmNode = kNode;
    request.baseInfo = filledBaseInfo();
    client::ApplyForVmReq message;
    const QStringList mismatches = outgoingMismatches(
        {OUT(R, id, "id"), OUT(R, poolName, "pool_name"), OUT(R, port, "port"), OUT(R, startDomain, "start_domain")},
        request, &H::toApplyForVMReq, message, {QStringLiteral("client_base_info")});
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
    QCOMPARE(shortText(message.client_base_info()), identityText(request.baseInfo));
}

void TestConversions::applyForDeviceInfoRequest()
{
    tagApplyForDeviceInfoRequest request;
    request.vmNode = kNode;
    request.baseInfo = filledBaseInfo();
    client::ApplyForDeviceInfoReq message;
    const QStringList mismatches = outgoingMismatches({}, request, &H::toApplyForDeviceInfoReq, message,
                                                      {QStringLiteral("client_base_info")});
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
    QCOMPARE(shortText(message.client_base_info()), identityText(request.baseInfo));
}

void TestConversions::vmInfoRequest_data()
{
    QTest::addColumn<QString>("vmId");
    QTest::addColumn<int>("wire");
    QTest::newRow("number") << QStringLiteral("42") << 42;
    QTest::newRow("negative") << QStringLiteral("-7") << -7;
    QTest::newRow("no number") << QStringLiteral("abc") << 0;
    QTest::newRow("above int range") << QStringLiteral("2147483648") << 0;
    QTest::newRow("empty") << QString() << 0;
}

// The id is text in the record and a number on the wire.
void TestConversions::vmInfoRequest()
{
    QFETCH(QString, vmId);
    QFETCH(int, wire);
    using R = tagQueryVmInfoReq;
    R request;
    request.vmId = vmId;
    vditest::LogCapture log;
    client::VmReq message;
    const QStringList mismatches =
        outgoingMismatches({OUT(R, vmUuid, "vmUuid"), OUT(R, deviceType, "deviceType")}, request, &H::toVmInfoReq,
                           message, {QStringLiteral("vmId")});
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
    QCOMPARE(message.vmid(), wire);
}

void TestConversions::registerDeviceRequest()
{
    // The record's own address and names, not the identity's, go into the message's own fields.
    using R = tagRegisterDeviceRequest;
    R request;
    request.baseInfo = filledBaseInfo();
    request.extendInfo = filledExtendInfo();
    client::RegisterDevReq message;
    const QStringList mismatches = outgoingMismatches(
        {OUT(R, ip, "ip"), OUT(R, mac, "mac"), OUT(R, deviceId, "device_id"), OUT(R, deviceName, "device_name"),
         OUT(R, registerType, "register_type")},
        request, &H::toRegisterDevReq, message,
        {QStringLiteral("client_base_info"), QStringLiteral("client_extend_info")});
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
    QCOMPARE(shortText(message.client_base_info()), identityText(request.baseInfo));
    QCOMPARE(shortText(message.client_extend_info()), extendText(request.extendInfo));
    QVERIFY(message.sn().empty());
}

void TestConversions::reportSuccessRequest()
{
    using R = tagReportSuccessRequest;
    R request;
    request.vmNode = kNode;
    request.baseInfo = filledBaseInfo();
    request.extendInfo = filledExtendInfo();
    client::ReportSuccessReq message;
    const QStringList mismatches =
        outgoingMismatches({OUT(R, vmIp, "vm_ip")}, request, &H::toReportSuccessReq, message,
                           {QStringLiteral("content"), QStringLiteral("client_extend_info")});
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
    QCOMPARE(shortText(message.content()), identityText(request.baseInfo));
    QCOMPARE(shortText(message.client_extend_info()), extendText(request.extendInfo));
}

void TestConversions::usbNotifyRequest()
{
    using R = tagUSBNotifyRequest;
    R request;
    request.vmNode = kNode;
    request.baseInfo = filledBaseInfo();
    client::USBNotifyReq message;
    const QStringList mismatches = outgoingMismatches(
        {OUT(R, password, "client_info.password"), OUT(R, readOnly, "client_info.read_only"),
         OUT(R, vmId, "target_vm.vm_id"), OUT(R, vmUuid, "target_vm.vmUuid")},
        request, &H::toUSBNotifyReq, message, {QStringLiteral("client_base_info")});
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
    QCOMPARE(shortText(message.client_base_info()), identityText(request.baseInfo));
}

void TestConversions::usbNotifyRequestCreatesBothParts()
{
    const tagUSBNotifyRequest empty{};
    client::USBNotifyReq message;
    H::toUSBNotifyReq(empty, message);
    QVERIFY(message.has_client_base_info());
    QVERIFY(message.has_client_info());
    QVERIFY(message.has_target_vm());
    QCOMPARE(shortText(message.client_info()), QString());
    QCOMPARE(shortText(message.target_vm()), QString());
}

static const std::vector<Outgoing<tagRedirectStatusInfoReust>> kRedirectStatusFields{
    OUT(tagRedirectStatusInfoReust, redirectDeviceName, "redirect_device_name"),
    OUT(tagRedirectStatusInfoReust, pid, "pid"),
    OUT(tagRedirectStatusInfoReust, vid, "vid"),
    OUT(tagRedirectStatusInfoReust, redirectDeviceType, "redirect_device_type"),
    OUT(tagRedirectStatusInfoReust, subClass, "subClass"),
    OUT(tagRedirectStatusInfoReust, redirectStatus, "redirect_status"),
    OUT(tagRedirectStatusInfoReust, description, "description"),
};

void TestConversions::redirectStatusRequest()
{
    tagRedirectStatusInfoReust info;
    client::RedirectStatusInfo entry;
    QStringList mismatches = outgoingMismatches(kRedirectStatusFields, info, &H::RedirectStatusInfo2Grpc, entry);
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));

    // One entry per device, each from its own, in the list's order.
    using R = tagRedirectStatusReust;
    R request;
    request.baseInfo = filledBaseInfo();
    for (int first : {201, 301, 401}) {
        tagRedirectStatusInfoReust device;
        fillMembers(kRedirectStatusFields, device, first);
        request.redirectList.append(device);
    }
    client::RedirectStatusReq message;
    mismatches = outgoingMismatches({OUT(R, vmUuid, "vm_uuid")}, request, &H::toRedirectStatusReq, message,
                                    {QStringLiteral("client_base_info"), QStringLiteral("redirect_list")});
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
    QCOMPARE(shortText(message.client_base_info()), identityText(request.baseInfo));
    QCOMPARE(message.redirect_list_size(), request.redirectList.size());
    for (int i = 0; i < request.redirectList.size(); ++i) {
        client::RedirectStatusInfo expected;
        H::RedirectStatusInfo2Grpc(request.redirectList.at(i), expected);
        QCOMPARE(shortText(message.redirect_list(i)), shortText(expected));
    }
}

void TestConversions::redirectStatusRequestWithoutDevices()
{
    tagRedirectStatusReust request;
    request.baseInfo = filledBaseInfo();
    request.vmUuid = QStringLiteral("uuid-9");
    client::RedirectStatusReq message;
    H::toRedirectStatusReq(request, message);
    QCOMPARE(message.redirect_list_size(), 0);
    QCOMPARE(message.vm_uuid(), std::string("uuid-9"));
    QCOMPARE(shortText(message.client_base_info()), identityText(request.baseInfo));
}

static QString errorText(const tagErrorData& error)
{
    return QStringLiteral("%1 / %2 / %3").arg(error.errorCode).arg(error.errorMsgZh, error.errorMsgEn);
}

// Replies that carry little but the server's error; what the handler echoes stays untouched.
void TestConversions::operationReplies()
{
    common::ErrorData error;
    error.set_error_code(101);
    error.set_error_msg_zh("错误 102");
    error.set_error_msg_en("error 103");
    const QString expected = QStringLiteral("101 / 错误 102 / error 103");

    client::RegisterDevResp registered;
    *registered.mutable_error() = error;
    registered.set_register_id(5000000104LL);
    tagRegisterDeviceReply registerReply;
    H::fromRegisterDevReq(registered, registerReply);
    QCOMPARE(errorText(registerReply.error), expected);
    QCOMPARE(registerReply.registerId, qint64(5000000104LL));

    client::ReportSuccessResp reported;
    *reported.mutable_error() = error;
    tagReportSuccessReply reportReply;
    H::fromReportSuccessResq(reported, reportReply);
    QCOMPARE(errorText(reportReply.error), expected);
    QCOMPARE(reportReply.vmId, qint64(0));
    QCOMPARE(reportReply.vmNode.nodeIndex, 0);

    client::USBNotifyResp notified;
    *notified.mutable_error() = error;
    tagUSBNotifyReply usbReply;
    H::fromUSBNotifyResq(notified, usbReply);
    QCOMPARE(errorText(usbReply.error), expected);
    QVERIFY(usbReply.vmNode.nodeId.isNull());
    QCOMPARE(usbReply.vmNode.nodeIndex, 0);

    client::ModifyVmNameResp renamed;
    *renamed.mutable_error() = error;
    tagModifyVMNameReply renameReply;
    H::fromModifyVMNameResq(renamed, renameReply);
    QCOMPARE(errorText(renameReply.error), expected);
    QVERIFY(renameReply.vmNameNew.isNull());
    QVERIFY(renameReply.vmNode.nodeName.isNull());

    common_message::VoidResp nothing;
    *nothing.mutable_error() = error;
    tagVoidReply voidReply;
    H::fromVoidResp(nothing, voidReply);
    QCOMPARE(errorText(voidReply.error), expected);
    QVERIFY(voidReply.reserved.isNull());
}

VDI_TEST_MAIN(TestConversions)
#include "tst_conversions.moc"
