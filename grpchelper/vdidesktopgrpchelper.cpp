#include "vdidesktopgrpchelper.h"

namespace {

// Wording shown to users for a transport failure, indexed by status code + 1 (-1 .. 16).
// Code 0 has no entry: a successful status leaves the text alone.
const char* const kStatusTextZh[] = {
    "强制用户包括默认分支。",                                                   // -1 DO_NOT_USE
    nullptr,                                                                    //  0 OK
    "操作被取消。",                                                             //  1 CANCELLED
    "通信发生未知错误。",                                                       //  2 UNKNOWN
    "参数无效。",                                                               //  3 INVALID_ARGUMENT
    "通信请求超时，认证失败，请检查服务器地址或网络相关设置。",                 //  4 DEADLINE_EXCEEDED
    "找不到某些请求文件或目录。",                                               //  5 NOT_FOUND
    "文件或目录已经存在。",                                                     //  6 ALREADY_EXISTS
    "权限不足。",                                                               //  7 PERMISSION_DENIED
    "某些资源已耗尽：用户配额或整个文件系统空间不足。",                         //  8 RESOURCE_EXHAUSTED
    "操作被拒绝，因为系统未处于执行操作所需的状态。",                           //  9 FAILED_PRECONDITION
    "操作被中止，通常是由于并发问题，如Sequencer检查失败、事务中止等。",        // 10 ABORTED
    "尝试的操作超出了有效范围。例如，查找或读取超过文件结尾的内容。",           // 11 OUT_OF_RANGE
    "此服务未实现或不支持该操作。",                                             // 12 UNIMPLEMENTED
    "内部错误：底层系统的某些不变量已被破坏。",                                 // 13 INTERNAL
    "服务器连接失败，请检查网络等相关配置或联系管理员。",                       // 14 UNAVAILABLE
    "无法恢复的数据丢失或损坏。",                                               // 15 DATA_LOSS
    "该操作请求没有有效的身份验证凭据。",                                       // 16 UNAUTHENTICATED
};
constexpr int kFirstTableCode = -1;
constexpr int kLastTableCode = 16;

inline std::string out(const QString& text)
{
    return VdiDesktopGrpcHelper::toStdString(text);
}

} // namespace

// Most texts here are ASCII, which is copied straight across without the intermediate byte array
// of QString::toStdString().
std::string VdiDesktopGrpcHelper::toStdString(const QString& text)
{
    const QChar* chars = text.constData();
    const int size = text.size();
    std::string bytes(static_cast<size_t>(size), '\0');
    for (int i = 0; i < size; ++i) {
        const ushort c = chars[i].unicode();
        if (c >= 0x80)
            return text.toStdString();
        bytes[static_cast<size_t>(i)] = static_cast<char>(c);
    }
    return bytes;
}

QString VdiDesktopGrpcHelper::fromStdString(std::string const& text)
{
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

void VdiDesktopGrpcHelper::toErrorData(grpc::Status const& status, tagErrorData& errorData)
{
    const int code = static_cast<int>(status.error_code());
    errorData.errorCode = code;
    errorData.errorMsgEn = fromStdString(status.error_message());
    if (code >= kFirstTableCode && code <= kLastTableCode) {
        if (const char* text = kStatusTextZh[code - kFirstTableCode])
            errorData.errorMsgZh = QString::fromUtf8(text);
    }
}

void VdiDesktopGrpcHelper::grpc2ErrorData(common::ErrorData const& error, tagErrorData& errorData)
{
    errorData.errorCode = error.error_code();
    errorData.errorMsgEn = fromStdString(error.error_msg_en());
    errorData.errorMsgZh = fromStdString(error.error_msg_zh());
}

// The fields that both ClientBaseInfo messages share; the client one has three more.
template <class Message>
static void commonBaseInfo2Grpc(const tagBaseInfo& info, Message& message)
{
    message.set_name(out(info.name));
    message.set_password(out(info.password));
    message.set_domain(out(info.domain));
    message.set_ip(out(info.ip));
    message.set_mac(out(info.mac));
    message.set_device_id(out(info.deviceId));
    message.set_device_name(out(info.deviceName));
    message.set_vm_id(info.vmId);
    message.set_auth_type(out(info.authType));
    message.set_sms_code(out(info.smsCode));
    message.set_refresh_flag(out(info.refreshFlag));
    message.set_client_type(out(info.clientType));
    message.set_protocol_type(out(info.protocolType));
    message.set_computer_type(info.computerType);
}

void VdiDesktopGrpcHelper::baseInfo2Grpc(const tagBaseInfo& info, client::ClientBaseInfo& message)
{
    commonBaseInfo2Grpc(info, message);
    message.set_vmuuid(out(info.vmUuid));
    message.set_isopenldap(info.isOpenldap);
    message.set_ticket(out(info.ticket));
}

void VdiDesktopGrpcHelper::baseInfo2Grpc(const tagBaseInfo& info, gateway::ClientBaseInfo& message)
{
    commonBaseInfo2Grpc(info, message);
}

// The six text fields that both ClientExtendInfo messages share.
template <class Message>
static void commonExtendInfo2Grpc(const tagExtendInfo& info, Message& message)
{
    message.set_client_language(out(info.clientLanguage));
    message.set_client_version(out(info.clientVersion));
    message.set_vendor(out(info.vendor));
    message.set_model(out(info.model));
    message.set_os_type(out(info.osType));
    message.set_os_version(out(info.osVersion));
}

void VdiDesktopGrpcHelper::extendInfo2Grpc(const tagExtendInfo& info, client::ClientExtendInfo& message)
{
    commonExtendInfo2Grpc(info, message);
    message.set_computer_type(info.computerType);
    message.set_cpu_arch(out(info.cpuArch));
    message.set_pinelet_version(out(info.pineletVersion));
}

void VdiDesktopGrpcHelper::extendInfo2Grpc(const tagExtendInfo& info, gateway::ClientExtendInfo& message)
{
    commonExtendInfo2Grpc(info, message);
}
