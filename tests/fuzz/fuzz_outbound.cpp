// Request records made from the input, through every outbound conversion and through the log
// redaction of the worker with the request's debug text, the way the handlers log them.
//
// The first byte picks the conversion (or the redaction of the raw input text); the rest fills
// the record. Checked on every request: the wire form parses back to the same bytes, the text
// conversion agrees with Qt's own, and the redaction behaves as the worker promises.
#include "bytereader.h"
#include "fuzzsupport.h"

#include <functional>

#include "vdidesktopgrpchelper.h"
#include "vdidesktopgrpcworker.h"

namespace {
using H = VdiDesktopGrpcHelper;
using google::protobuf::Message;
using vdifuzz::ByteReader;
using vdifuzz::check;

// A text for a record; on the way, toStdString must give what Qt's own conversion gives, and a
// well-formed text must come back unchanged from the wire form. (Qt's UTF-8 decoder drops a
// leading byte order mark, U+FEFF: such a text comes back without it.)
QString text(ByteReader& in)
{
    const QString value = in.text();
    const std::string wire = H::toStdString(value);
    check(wire == value.toStdString(), "toStdString agrees with QString::toStdString");
    if (value.isValidUtf16() && !value.startsWith(QChar(0xfeff)))
        check(H::fromStdString(wire) == value, "a text survives toStdString and fromStdString");
    return value;
}

tagBaseInfo baseInfo(ByteReader& in)
{
    tagBaseInfo info;
    info.ip = text(in);
    info.mac = text(in);
    info.vmId = in.int64();
    info.domain = text(in);
    info.smsCode = text(in);
    info.name = text(in);
    info.authType = text(in);
    info.deviceId = text(in);
    info.deviceName = text(in);
    info.clientType = text(in);
    info.refreshFlag = text(in);
    info.protocolType = text(in);
    info.password = text(in);
    info.computerType = in.int32();
    info.vmUuid = text(in);
    info.isOpenldap = in.int32();
    info.ticket = text(in);
    return info;
}

tagExtendInfo extendInfo(ByteReader& in)
{
    tagExtendInfo info;
    info.model = text(in);
    info.vendor = text(in);
    info.osType = text(in);
    info.osVersion = text(in);
    info.computerType = in.int32();
    info.clientVersion = text(in);
    info.clientLanguage = text(in);
    info.cpuArch = text(in);
    info.pineletVersion = text(in);
    return info;
}

tagVmNodeInfo vmNode(ByteReader& in)
{
    tagVmNodeInfo node;
    node.nodeId = text(in);
    node.nodeName = text(in);
    node.nodeIndex = in.int32();
    return node;
}

tagSaasAppInfo saasAppInfo(ByteReader& in)
{
    tagSaasAppInfo app;
    app.iconUrl = text(in);
    app.appName = text(in);
    app.appAddress = text(in);
    app.description = text(in);
    app.ssoProtocol = text(in);
    return app;
}

tagRedirectStatusInfoReust redirectStatusInfo(ByteReader& in)
{
    tagRedirectStatusInfoReust info;
    info.redirectDeviceName = text(in);
    info.pid = text(in);
    info.vid = text(in);
    info.redirectDeviceType = text(in);
    info.subClass = text(in);
    info.redirectStatus = in.int32();
    info.description = text(in);
    return info;
}

template <class Wire, class Record>
std::unique_ptr<Message> convert(const Record& record, void (*to)(const Record&, Wire&))
{
    std::unique_ptr<Wire> message(new Wire);
    to(record, *message);
    return message;
}

// The same client identity on the wire as in the record.
template <class Wire>
void checkBaseInfo(const tagBaseInfo& info, const Wire& message)
{
    check(message.name() == H::toStdString(info.name), "the user name goes on the wire");
    check(message.password() == H::toStdString(info.password), "the password goes on the wire");
    check(message.vm_id() == info.vmId, "the desktop id goes on the wire");
}

using Build = std::function<std::unique_ptr<Message>(ByteReader&)>;

const std::vector<Build>& builds()
{
    static const std::vector<Build> table{
        [](ByteReader& in) {
            const tagBaseInfo info = baseInfo(in);
            std::unique_ptr<client::ClientBaseInfo> message(new client::ClientBaseInfo);
            H::baseInfo2Grpc(info, *message);
            checkBaseInfo(info, *message);
            return std::unique_ptr<Message>(std::move(message));
        },
        [](ByteReader& in) {
            const tagBaseInfo info = baseInfo(in);
            std::unique_ptr<gateway::ClientBaseInfo> message(new gateway::ClientBaseInfo);
            H::baseInfo2Grpc(info, *message);
            checkBaseInfo(info, *message);
            return std::unique_ptr<Message>(std::move(message));
        },
        [](ByteReader& in) { return convert<client::ClientExtendInfo>(extendInfo(in), &H::extendInfo2Grpc); },
        [](ByteReader& in) { return convert<gateway::ClientExtendInfo>(extendInfo(in), &H::extendInfo2Grpc); },
        [](ByteReader& in) {
            tagHeartbeatRequest request;
            request.vmIp = text(in);
            request.baseInfo = baseInfo(in);
            request.extendInfo = extendInfo(in);
            return convert(request, &H::toHeartBeatReq);
        },
        [](ByteReader& in) {
            tagDeviceConfigInfoReq request;
            request.ip = text(in);
            request.mac = text(in);
            request.deviceId = text(in);
            return convert(request, &H::toDeviceConfigInfoReq);
        },
        [](ByteReader& in) {
            tagLoginRequest request;
            request.baseInfo = baseInfo(in);
            request.extendInfo = extendInfo(in);
            request.reserved = text(in);
            return convert(request, &H::toLoginReq);
        },
        [](ByteReader& in) {
            tagOperateForVMRequest request;
            request.vmNode = vmNode(in);
            request.baseInfo = baseInfo(in);
            request.opType = in.int32();
            request.forceFlag = in.int32();
            request.startDomain = in.int32();
            request.port = text(in);
            return convert(request, &H::toOperateForVMReq);
        },
        [](ByteReader& in) {
            tagSnapshotRequest request;
            request.vmNode = vmNode(in);
            request.baseInfo = baseInfo(in);
            request.opType = in.int32();
            request.name = text(in);
            request.description = text(in);
            return convert(request, &H::toSnapshotReq);
        },
        [](ByteReader& in) {
            tagModifyVMNameRequest request;
            request.vmNode = vmNode(in);
            request.vmNameNew = text(in);
            request.baseInfo = baseInfo(in);
            return convert(request, &H::toModifyVMNameReq);
        },
        [](ByteReader& in) {
            tagApplyForVMRequest request;
            request.baseInfo = baseInfo(in);
            request.vmNode = vmNode(in);
            request.id = in.int64();
            request.poolName = text(in);
            request.port = text(in);
            request.startDomain = in.int32();
            return convert(request, &H::toApplyForVMReq);
        },
        [](ByteReader& in) {
            tagApplyForDeviceInfoRequest request;
            request.vmNode = vmNode(in);
            request.baseInfo = baseInfo(in);
            return convert(request, &H::toApplyForDeviceInfoReq);
        },
        [](ByteReader& in) {
            tagDeskTopPoolRequest request;
            request.vmId = in.int32();
            request.vmUuid = text(in);
            return convert(request, &H::toDeskTopPoolReq);
        },
        [](ByteReader& in) {
            tagQueryVmInfoReq request;
            request.vmId = text(in);
            request.vmUuid = text(in);
            request.deviceType = in.int32();
            return convert(request, &H::toVmInfoReq);
        },
        [](ByteReader& in) {
            tagRegisterDeviceRequest request;
            request.ip = text(in);
            request.mac = text(in);
            request.deviceId = text(in);
            request.deviceName = text(in);
            request.extendInfo = extendInfo(in);
            request.registerType = in.int32();
            request.baseInfo = baseInfo(in);
            return convert(request, &H::toRegisterDevReq);
        },
        [](ByteReader& in) {
            tagReportSuccessRequest request;
            request.vmNode = vmNode(in);
            request.vmIp = text(in);
            request.baseInfo = baseInfo(in);
            request.extendInfo = extendInfo(in);
            return convert(request, &H::toReportSuccessReq);
        },
        [](ByteReader& in) {
            tagUSBNotifyRequest request;
            request.vmNode = vmNode(in);
            request.baseInfo = baseInfo(in);
            request.password = text(in);
            request.readOnly = text(in);
            request.vmId = text(in);
            request.vmUuid = text(in);
            return convert(request, &H::toUSBNotifyReq);
        },
        [](ByteReader& in) { return convert(redirectStatusInfo(in), &H::RedirectStatusInfo2Grpc); },
        [](ByteReader& in) {
            tagRedirectStatusReust request;
            request.baseInfo = baseInfo(in);
            request.vmUuid = text(in);
            for (int count = in.byte() % 4; count > 0; --count)
                request.redirectList.append(redirectStatusInfo(in));
            return convert(request, &H::toRedirectStatusReq);
        },
        [](ByteReader& in) {
            tagCheckPasswordRequest request;
            request.baseInfo = baseInfo(in);
            return convert(request, &H::toCheckPasswordReq);
        },
        [](ByteReader& in) {
            tagModifyPasswordRequest request;
            request.baseInfo = baseInfo(in);
            request.passwordNew = text(in);
            return convert(request, &H::toModifyPasswordReq);
        },
        [](ByteReader& in) {
            tagClientReleasePasswordRequest request;
            request.clientType = in.int32();
            return convert(request, &H::toClientReleasePasswordReq);
        },
        [](ByteReader& in) {
            tagUpgradeRequest request;
            request.clientName = text(in);
            request.clientVersion = text(in);
            request.clientType = text(in);
            request.osType = text(in);
            request.cpuArch = text(in);
            request.ip = text(in);
            request.deviceId = text(in);
            request.deviceName = text(in);
            request.state = text(in);
            return convert(request, &H::toUpgradeReq);
        },
        [](ByteReader& in) {
            tagNextCloudInfoReq request;
            request.userId = in.int64();
            return convert(request, &H::toNextCloudInfoReq);
        },
        [](ByteReader& in) {
            tagIndividualConfigReq request;
            request.type = in.int32();
            return convert(request, &H::toIndividualConfigReq);
        },
        [](ByteReader& in) {
            std::unique_ptr<client::LoginConfigReq> message(new client::LoginConfigReq);
            H::toLoginConfigReq(text(in), *message);
            return std::unique_ptr<Message>(std::move(message));
        },
        [](ByteReader& in) {
            LoginCodeReq request;
            request.baseInfo = baseInfo(in);
            request.extendInfo = extendInfo(in);
            request.codeSource = text(in);
            request.codeType = text(in);
            request.username = text(in);
            return convert(request, &H::toLoginCodeReq);
        },
        [](ByteReader& in) {
            tagSaasListReq request;
            request.baseInfo = baseInfo(in);
            return convert(request, &H::toSaasAppListReq);
        },
        [](ByteReader& in) {
            tagSaasAppReq request;
            request.baseInfo = baseInfo(in);
            request.appInfo = saasAppInfo(in);
            return convert(request, &H::toSaasAppReq);
        },
        [](ByteReader& in) {
            tagRemoteAppApplyReq request;
            request.userName = text(in);
            request.displayName = text(in);
            request.domain = text(in);
            return convert(request, &H::toApplyRemoteAppReq);
        },
        [](ByteReader& in) {
            tagShareTerminalInfoRequest request;
            request.deviceId = text(in);
            return convert(request, &H::toShareTerminalInfoReq);
        },
        [](ByteReader& in) {
            tagTransDesk2ShareTerminalRequest request;
            request.deviceId = text(in);
            request.vmUuid = text(in);
            request.dstDeviceId = text(in);
            request.vdpFileData = in.bytes();
            std::unique_ptr<client::TransDeskToShareTerminalReq> message(new client::TransDeskToShareTerminalReq);
            H::toTransDesk2ShareTerminalReq(request, *message);
            // The data go as a zero-terminated string: cut at the first zero byte.
            check(message->vdp_file_data() == std::string(request.vdpFileData.constData()),
                  "the file data go up to their first zero byte");
            return std::unique_ptr<Message>(std::move(message));
        },
        [](ByteReader& in) {
            tagLoginOakdeskShareTerminalRequest request;
            request.deviceId = text(in);
            request.userName = text(in);
            request.password = text(in);
            return convert(request, &H::toLoginOakdeskTerminalReq);
        },
        [](ByteReader& in) {
            tagOneKeyHelpInfoRequest request;
            request.userMac = text(in);
            request.realName = text(in);
            request.phoneNumber = text(in);
            request.email = text(in);
            request.problemType = text(in);
            request.problemDesc = text(in);
            request.getLog = in.int32();
            request.screenShotUrl = text(in);
            request.ip = text(in);
            request.vmIp = text(in);
            return convert(request, &H::toOneKeyHelpReq);
        },
    };
    return table;
}

// The wire form of a request parses back into the same bytes (texts are well-formed UTF-8).
void checkWire(const Message& message)
{
    std::string wire;
    check(message.SerializeToString(&wire), "the request serializes");
    std::unique_ptr<Message> back(message.New());
    check(back->ParseFromString(wire), "the serialized request parses back");
    check(back->SerializeAsString() == wire, "the request parses back to the same wire form");
}

// The worker's redaction of a logged text. Both entry points agree; a text without the key is
// left alone, one with it loses something. Where the text holds the key exactly once, as a field
// name at the start of its line, the key goes with the 29 characters behind it, and with it a
// value of up to 26 characters.
void checkRedaction(const QString& text)
{
    static VdiDesktopGrpcWorker* const worker = new VdiDesktopGrpcWorker;  // lives as long as the process
    QString inPlace = text;
    worker->printInfoWithoutKeyList(inPlace);
    check(worker->debugInfoWithoutKeyList(text) == inPlace, "both redaction entry points agree");

    const QString key = QStringLiteral("password");
    if (!text.contains(key)) {
        check(inPlace == text, "a text without the key stays as it is");
        return;
    }
    check(inPlace.size() < text.size(), "a text with the key loses something");
    if (text.count(key) != 1)
        return;
    const int pos = text.indexOf(key);
    check(inPlace == text.left(pos) + text.mid(pos + key.size() + 29), "the key goes with 29 characters");

    int lineStart = pos;
    while (lineStart > 0 && text.at(lineStart - 1) == QLatin1Char(' '))
        --lineStart;
    if (lineStart > 0 && text.at(lineStart - 1) != QLatin1Char('\n'))
        return;
    if (text.mid(pos + key.size(), 3) != QLatin1String(": \""))
        return;
    const int valueStart = pos + key.size() + 3;
    const int valueEnd = text.indexOf(QLatin1Char('"'), valueStart);
    if (valueEnd <= valueStart || valueEnd - valueStart > 26)
        return;
    const QString value = text.mid(valueStart, valueEnd - valueStart);
    if (value.startsWith(QLatin1Char(' ')) || value.contains(QLatin1Char('\n')))
        return;  // such a value could reappear where the two ends of the cut meet
    check(inPlace.count(value) < text.count(value), "a short password does not reach the log");
}

} // namespace

std::vector<vdifuzz::Seed> vdifuzz::seeds()
{
    std::vector<Seed> result;
    // For each conversion: every text in ASCII, of a length that shows a value (mode 2, length
    // 12), and every number small; then the redaction of a typical request text.
    for (size_t index = 0; index < builds().size(); ++index) {
        std::string bytes(1, static_cast<char>(index));
        for (int field = 0; field < 24; ++field) {
            bytes += std::string("\x02\x0c", 2) + "demo-field-" + static_cast<char>('a' + field % 26);
        }
        result.push_back({"request-" + std::to_string(index), bytes});
    }
    result.push_back({"redaction-login",
                      std::string(1, static_cast<char>(builds().size())) +
                          "client_base_info {\n  name: \"demo-user\"\n  password: \"demo-password\"\n"
                          "  domain: \"vdi.local\"\n}\n"});
    result.push_back({"redaction-modify",
                      std::string(1, static_cast<char>(builds().size())) +
                          "password_new: \"new-secret-2024\"\nspice_password: \"spice-7f3a\"\n"});
    return result;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const size_t choice = data[0] % (builds().size() + 1);
    if (choice == builds().size()) {  // the raw input as a logged text
        checkRedaction(QString::fromUtf8(reinterpret_cast<const char*>(data + 1), static_cast<int>(size - 1)));
        return 0;
    }
    ByteReader in(data + 1, size - 1);
    const std::unique_ptr<Message> message = builds()[choice](in);
    checkWire(*message);
    checkRedaction(QString::fromStdString(message->DebugString()));
    return 0;
}
