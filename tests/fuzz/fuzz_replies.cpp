// Every reply of the controller and the gateway through its inbound conversion. The first byte
// of the input picks the reply from the table (modulo its size), the rest is the reply's wire
// form; what does not parse is skipped. Checked, besides no crash: one record entry per wire
// entry, and the error block through both error mappings.
#include "fuzzsupport.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>

#include <google/protobuf/message.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/text_format.h>
#include <grpcpp/support/status.h>

#include "vdidesktopgrpchelper.h"

namespace {
using H = VdiDesktopGrpcHelper;
using vdifuzz::check;

// Wire forms with invalid UTF-8 in a text are common input here; protobuf's log line for each
// would only slow the fuzzer down.
[[maybe_unused]] const bool kProtobufQuiet = (google::protobuf::SetLogHandler(nullptr), true);

// A reply: its name in the seed corpus, how to make an empty one, the conversion it goes
// through, and believable answers in text format for the seeds.
struct Reply {
    const char* name;
    std::function<std::unique_ptr<google::protobuf::Message>()> make;
    std::function<void(const google::protobuf::Message&)> convert;
    std::vector<const char*> seedTexts;
};

template <class Message>
Reply replyWith(const char* name, std::function<void(const Message&)> convert, std::vector<const char*> seedTexts)
{
    return Reply{name, [] { return std::unique_ptr<google::protobuf::Message>(new Message); },
                 [convert](const google::protobuf::Message& message) { convert(static_cast<const Message&>(message)); },
                 std::move(seedTexts)};
}

template <class T>
struct NotDeduced {
    using Type = T;
};

// The usual reply: one conversion into a fresh record, then what must hold of the two, if anything.
template <class Message, class Record>
Reply reply(const char* name, void (*convert)(const Message&, Record&), std::vector<const char*> seedTexts,
            typename NotDeduced<std::function<void(const Message&, const Record&)>>::Type property = nullptr)
{
    return replyWith<Message>(
        name,
        [convert, property](const Message& message) {
            Record record;
            convert(message, record);
            if (property)
                property(message, record);
        },
        std::move(seedTexts));
}
#define VDI_REPLY(conversion, ...) reply(#conversion, &H::conversion, __VA_ARGS__)

// A property that a list keeps one entry per wire entry.
#define VDI_ONE_PER_ENTRY(Message, Record, list, wireList)                             \
    [](const Message& message, const Record& record) {                                  \
        check(record.list.size() == message.wireList##_size(), "one " #list " entry per wire entry"); \
    }

// A believable desktop and pool in text form, for the replies that carry them.
#define VDI_FUZZ_VM                                                                                       \
    "vm_id: 1001 vm_name: \"office-001\" vm_status: \"running\" vm_is_used: \"1\" ip_list: \"10.10.1.11\" " \
    "os_type: 0 os_version: \"Windows 10 Enterprise\" is_port_enable: 1 vmUuid: \"5f0c2d4e-office-001\" "    \
    "domain_name: \"vdi.local\" address_list { mac: \"52:54:00:0a:01:0b\" ip_list: \"10.10.1.11\" } "       \
    "extend_op { shudown: 1 reboot: 1 power_off: 1 disconnection: 1 client_ctrl_alt_del: 1 snapshot: 1 } " \
    "control_policy { share_policy { clipboard: 1 printers: 1 } usb_policy { enable: 1 policy_list: "      \
    "\"0781:5567\" } watermark_policy { enable: 1 color: \"ff0000\" font_size: 14 transparent: 20 "         \
    "user_define: \"Desktop Watermark\" rotation_angle: 30 } reconnection_network_time: 60 }"
#define VDI_FUZZ_POOL                                                                                     \
    "id: 101 name: \"Office desktops\" status: 1 type: 1 vm_os_version: \"Windows 10 Enterprise\" "        \
    "vm_os_type: 0 resource_name: \"cluster-a\" pool_expire_time: 0 extend_op { shudown: 1 reboot: 1 } "   \
    "vm_list { vm_id: 1001 vm_name: \"office-001\" vm_status: \"running\" vmUuid: \"5f0c2d4e-office-001\" " \
    "os_version: \"Windows 10 Enterprise\" vm_expire_time: 4294967293 address_list { mac: "                \
    "\"52:54:00:0a:01:0b\" ip_list: \"10.10.1.11\" } snapshot_list { name: \"before-update\" "              \
    "description: \"Taken before the monthly update\" } }"

const char* const kNoError = "error { error_code: 0 }";

// The server's error block, and a transport status made from it with its code brought into 0..16
// (another value would be undefined), through both error mappings.
void convertError(const common::ErrorData& message)
{
    tagErrorData fromServer;
    H::grpc2ErrorData(message, fromServer);
    check(fromServer.errorCode == message.error_code(), "grpc2ErrorData keeps the code");
    const int code = static_cast<int>(((message.error_code() % 17) + 17) % 17);
    const grpc::Status status(static_cast<grpc::StatusCode>(code), message.error_msg_en(), message.error_msg_zh());
    tagErrorData fromStatus;
    H::toErrorData(status, fromStatus);
    check(fromStatus.errorCode == code, "toErrorData keeps the code");
    check(fromStatus.errorMsgEn == H::fromStdString(message.error_msg_en()), "toErrorData keeps the status message");
    check((code == 0) == (fromStatus.errorMsgZh == tagErrorData().errorMsgZh),
          "toErrorData words every failure code and no success");
}

const std::vector<Reply>& replies()
{
    static const std::vector<Reply> table = {
        // Discovery and the heartbeat.
        VDI_REPLY(fromHeartbeatResq, {kNoError}),
        VDI_REPLY(fromDeviceConfigInfoResp,
                  {"authType: 0 serverArch: \"x86_64\" displayType: 0 rememberPassword: true",
                   "authType: 2 serverArch: \"aarch64\" displayType: 1 outId: \"out-7\" error { error_code: 0 }"}),
        VDI_REPLY(fromGatewayInfoResp,
                  {"gateway_list { name: \"fake-gateway\" description: \"Simulated access gateway\" type: \"vdp\" "
                   "domain: \"vdi-fake-gateway\" public_ip: \"127.0.0.1\" VDP_port: \"443\" RDP_port: \"3389\" }"},
                  VDI_ONE_PER_ENTRY(common::queryGatewayInfoResp, tagGatewayInfoResp, gatewayList, gateway_list)),
        replyWith<client::ResourceList>(
            "fromQureyControllerListResp",
            [](const client::ResourceList& message) {
                client::ResourceList copy(message);  // the conversion takes the message by non-const reference
                tagQureyControllerListResp record;
                H::fromQureyControllerListResp(copy, record);
                check(record.resourceList.size() == message.resourceinfo_list_size(), "one node per wire entry");
            },
            {"resourceInfo_list { id: 1 name: \"vdi-fake-controller\" ip: \"127.0.0.1\" status: \"online\" "
             "gateway: false port: 443 } resourceInfo_list { id: 2 name: \"vdi-fake-gateway\" ip: \"127.0.0.1\" "
             "status: \"online\" gateway: true port: 443 }"}),
        VDI_REPLY(fromQueryControllerType, {"name: \"vdi-fake-controller\""}),
        VDI_REPLY(fromQueryVmControllerIpResq, {"ip: \"127.0.0.1\" port: 443 domain_name: \"vdi-fake-controller\""}),
        // The login, and the pools and desktops it carries.
        VDI_REPLY(fromLoginResp,
                  {"domain: \"vdi.local\" netBIOS: \"VDI\" name: \"demo-user\" update_interval: 30 start_timeout: 120 "
                   "user_id: 1001 due_date: 4102444800 pool_list { " VDI_FUZZ_POOL " } ex_pool_list { id: 201 "
                   "name: \"Training lab\" status: 1 type: 1 gateway_access_strategy: 1 }"},
                  [](const client::LoginResp& message, const tagLoginReply& record) {
                      check(record.poolList.size() == message.pool_list_size() + message.ex_pool_list_size(),
                            "the pools, then the extra pools");
                  }),
        VDI_REPLY(grpc2PoolInfo, {VDI_FUZZ_POOL}, VDI_ONE_PER_ENTRY(client::PoolInfo, tagPoolInfo, vmList, vm_list)),
        VDI_REPLY(grpc2VMInfo, {VDI_FUZZ_VM}),
        VDI_REPLY(grpc2VMOperator, {"shudown: 1 reboot: 1 power_off_reboot: 0 power_off: 1 back_home: 0 disconnection: 1"}),
        VDI_REPLY(grpc2VMAddress, {"mac: \"52:54:00:0a:01:0b\" ip_list: \"10.10.1.11\" ip_list: \"fe80::5054:ff:fe0a:10b\""}),
        VDI_REPLY(grpc2SnapshotInfo, {"name: \"before-update\" description: \"Taken before the monthly update\""}),
        // The operations on desktops and devices, their assignment and the device reports.
        VDI_REPLY(fromApplyForVMResp,
                  {"vm { " VDI_FUZZ_VM " } name: \"demo-user\" password: \"demo-password\" host_ip: \"10.10.1.2\" "
                   "host_ips: \"10.10.1.2\" spice_password: \"spice-7f3a\" user_group: \"staff\""}),
        VDI_REPLY(fromOperateForVMResq, {"vm { " VDI_FUZZ_VM " } spice_port: \"5901\" hostIp: \"10.10.1.2\" "
                                         "gatewayToken: \"gw-token-1\" tlsPort: \"5902\""}),
        VDI_REPLY(fromRecoverVMResq, {"vm_id: 1001 progress: 100 vmUuid: \"5f0c2d4e-office-001\""}),
        VDI_REPLY(fromSnapshotResq,
                  {"snapshot_list { name: \"before-update\" description: \"Taken before the monthly update\" }"},
                  VDI_ONE_PER_ENTRY(client::SnapshotResp, tagSnapshotReply, snapshotList, snapshot_list)),
        VDI_REPLY(fromApplyForDeviceInfoResq,
                  {"device_list { device_id: \"dev-0001\" "
                   "vm_address { mac: \"52:54:00:0a:01:0b\" ip_list: \"10.10.1.11\" } }"},
                  VDI_ONE_PER_ENTRY(client::ApplyForDeviceInfoResp, tagApplyForDeviceInfoReply, deviceList, device_list)),
        VDI_REPLY(fromDeskTopPoolResq,
                  {"pool { " VDI_FUZZ_POOL " } mac: \"52:54:00:0a:01:0b\" computerName: \"office-001\""}),
        VDI_REPLY(fromVmInfoResp, {"memSize: 4096 memRate: \"37%\" cpuSize: 2 cpuRate: \"12%\""}),
        VDI_REPLY(fromModifyVMNameResq, {kNoError}),
        VDI_REPLY(fromRegisterDevReq, {"register_id: 7001", "error { error_code: 3 error_msg_en: \"device exists\" }"}),
        VDI_REPLY(fromReportSuccessResq, {kNoError}),
        VDI_REPLY(fromUSBNotifyResq, {kNoError}),
        VDI_REPLY(fromVoidResp, {"error { error_code: 0 error_msg_en: \"ok\" }"}),
        // Passwords, client configuration and login options.
        VDI_REPLY(fromCheckPasswordResq, {kNoError}),
        VDI_REPLY(fromModifyPasswordResq, {"error { error_code: 1012 error_msg_en: \"old password wrong\" }"}),
        VDI_REPLY(fromClientReleasePasswordResq, {"password: \"terminal-authority\" enable: 1"}),
        VDI_REPLY(fromUpgradeResq, {"client_version: \"2.0.0\" download_type: \"http\" force: 0 "
                                    "url: \"https://127.0.0.1:8443/upgrade/vdi-client-2.0.0.tar.gz\" "
                                    "md5: \"9e107d9d372bb6826bd81d3542a419d6\" "
                                    "description: \"Faster reconnection to a desktop and clearer login errors.\""}),
        VDI_REPLY(fromNextCloudInfoResp, {"serverIp: \"127.0.0.1\" port: \"8443\" enable: 1 ncSize: 10240"}),
        VDI_REPLY(fromIndividualConfigResp,
                  {"systemName: \"Simulated Desktop Cloud\" copyRight: \"Copyright (C) vdi-simulator\" "
                   "logoImgUrl: \"https://127.0.0.1:8443/branding/logo.png\" "
                   "backgroundImgUrl: \"https://127.0.0.1:8443/branding/background.jpg\" "
                   "content: \"Welcome to the simulated desktop cloud.\" createTime: \"2024-03-01 09:00:00\" "
                   "individual: 1 vendor_name: \"vdi-simulator\""}),
        VDI_REPLY(fromApplyForEmailResq,
                  {"serverAddress: \"127.0.0.1\" serverPort: \"465\" sendName: \"VDI administrator\" "
                   "sendEmail: \"vdi-admin@vdi.local\" authName: \"vdi-admin@vdi.local\" authPaw: \"mail-password\""}),
        VDI_REPLY(fromLoginConfigResp,
                  {"enableSmsLogin: true enableThirdPartyLogin: true timeout: 300 ticket: \"login-config-ticket-1\" "
                   "url: \"https://127.0.0.1:8443/sso/authorize\""}),
        VDI_REPLY(fromLoginCodeResp, {"codeSource: \"wechat\" codeType: \"qrcode\" ticket: \"qr-ticket-1\" "
                                      "qrcodeUrl: \"https://127.0.0.1:8443/qrlogin?ticket=qr-ticket-1\""}),
        // The application catalogues and share terminals.
        VDI_REPLY(grpc2RemoteAppInfo, {"displayName: \"Word\" iconUrl: \"https://127.0.0.1:8443/icons/winword.png\" type: 1"}),
        VDI_REPLY(fromRemoteAppListResp,
                  {"app_list { displayName: \"Word\" type: 1 } app_list { displayName: \"Excel\" type: 1 } "
                   "app_list { displayName: \"CAD Viewer\" type: 2 }"},
                  VDI_ONE_PER_ENTRY(client::RemoteAppListResp, tagRemoteAppListResp, appList, app_list)),
        VDI_REPLY(fromRemoteAppApplyResp,
                  {"appId: \"app-winword\" fullAddress: \"10.10.3.21\" displayName: \"Word\" alias: \"winword\" "
                   "control_policy { watermark_policy { enable: 1 font_size: 14 } }"}),
        VDI_REPLY(grpc2SaasAppInfo, {"appName: \"Mail\" iconUrl: \"mail\" appAddress: \"https://mail.vdi.local/\" "
                                     "description: \"Mail and calendar\" ssoProtocol: \"oauth2\""}),
        VDI_REPLY(fromSaasAppListResp,
                  {"app_list { appName: \"Mail\" iconUrl: \"mail\" appAddress: \"https://mail.vdi.local/\" "
                   "ssoProtocol: \"oauth2\" } app_list { appName: \"Wiki\" iconUrl: \"wiki\" "
                   "appAddress: \"https://wiki.vdi.local/\" ssoProtocol: \"saml2\" }"},
                  VDI_ONE_PER_ENTRY(client::SaasAppListResp, tagSaasAppListResp, appList, app_list)),
        VDI_REPLY(fromSaasAppResp, {kNoError}),
        VDI_REPLY(fromShareTerminalInfoResp,
                  {"terminal_list { device_id: \"share-term-01\" terminal_share_name: \"Meeting room A\" } "
                   "terminal_list { device_id: \"share-term-02\" terminal_share_name: \"Reception desk\" }"},
                  VDI_ONE_PER_ENTRY(client::ShareTerminalInfoResp, tagShareTerminalInfoReply, terminalList, terminal_list)),
        VDI_REPLY(fromeTransDesk2ShareTerminalResp, {"error_code: 0"}),
        VDI_REPLY(fromLoginOakdeskTerminalReq, {"error_code: 1012 error_msg_en: \"user or password wrong\""}),
        // The one-key help.
        VDI_REPLY(fromOneKeyHelpResq, {"taskId: 90017", "error { error_code: 13 error_msg_en: \"help service busy\" }"}),
        // The error block of every reply.
        replyWith<common::ErrorData>(
            "ErrorData", convertError,
            {"error_code: 14 error_msg_en: \"failed to connect to all addresses\" "
             "error_msg_zh: \"\\346\\234\\215\\345\\212\\241\\345\\231\\250\\350\\277\\236\\346\\216\\245\\345\\244\\261\\350\\264\\245\"",
             "error_code: 4 error_msg_en: \"Deadline Exceeded\"",
             "error_code: 1012 error_msg_en: \"user or password wrong\""}),
    };
    return table;
}

} // namespace

// For each reply an empty message, and for each of its texts the selector byte and the wire form.
std::vector<vdifuzz::Seed> vdifuzz::seeds()
{
    std::vector<Seed> result;
    for (size_t index = 0; index < replies().size(); ++index) {
        const Reply& entry = replies()[index];
        const std::string selector(1, static_cast<char>(index));
        result.push_back({std::string(entry.name) + "-empty", selector});
        int number = 0;
        for (const char* text : entry.seedTexts) {
            std::unique_ptr<google::protobuf::Message> message = entry.make();
            if (!google::protobuf::TextFormat::ParseFromString(text, message.get())) {
                std::fprintf(stderr, "seed of %s does not parse: %s\n", entry.name, text);
                std::abort();
            }
            result.push_back({std::string(entry.name) + "-" + std::to_string(++number),
                              selector + message->SerializeAsString()});
        }
    }
    return result;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const Reply& entry = replies()[data[0] % replies().size()];
    std::unique_ptr<google::protobuf::Message> message = entry.make();
    if (message->ParseFromArray(data + 1, static_cast<int>(size - 1)))
        entry.convert(*message);
    return 0;
}
