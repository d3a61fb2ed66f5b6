// Handlers of the login, direct to a controller or through an access gateway, and of the
// refresh of the desktop list.
#include "vdidesktopgrpcworker_frame.h"

#include <google/protobuf/empty.pb.h>

#include "basesettings.h"

namespace {
using H = VdiDesktopGrpcHelper;
using vdiinternal::BaseSettings;

const char* const kGatewayLoginFailed = "认证网关失败";
const char* const kLoginTooSlow = " 服务器响应登录请求超时，请稍后重试 ";

void fillLogin(const tagLoginRequest& request, client::LoginReq& message)
{
    H::toLoginReq(request, message);
}
} // namespace

void VdiDesktopGrpcWorker::login(const tagLoginRequest& request)
{
    // The frame's entry steps on the gateway stub; a direct deployment goes straight on.
    const RpcShape shape = RpcShape::at(__FUNCTION__).onNullStub("gateway stub null");
    RpcHooks<tagLoginReply> hooks;
    hooks.precondition = [this] { return m_serverType == BaseSettings::Gateway ? Gate::proceed() : Gate::decline(); };
    RpcResult<google::protobuf::Empty, tagLoginReply> entry;
    switch (enterHandler(shape, stubGateway != nullptr, hooks, entry)) {
    case CallOutcome::Declined:
        loginInternal(request);
        return;
    case CallOutcome::NullStubAnswered:
        emit loginResult(entry.record, false);
        return;
    case CallOutcome::Admitted:
        break;
    default:
        return;
    }

    // A failed check reads as "no authentication needed": the login then decides by itself.
    if (!checkAuthStatus()) {
        VDI_INFO << "no need auth gateway, login now";
        loginInternal(request);
        return;
    }
    m_loginRequest = request;
    if (gatewayInfoReadable())
        getGatewayAuthInfo(m_gatewayUser, m_gatewayPasswd);
    if (!m_gatewayUser.isEmpty() && !m_gatewayPasswd.isEmpty()) {
        VDI_INFO << "auto login gateway";
        loginGateway(m_gatewayUser, m_gatewayPasswd);
        return;
    }
    // Parked until the application answers with the facade's loginGateway.
    emit inputGatewayAuthInfo();
}

void VdiDesktopGrpcWorker::loginInternal(const tagLoginRequest& request)
{
    const RpcShape shape = RpcShape::at(__FUNCTION__).labels(" package request:\n", " package reply:\n");
    RpcResult<client::LoginResp, tagLoginReply> call;
    if (!answers(unaryCall(shape, stub, &client::ClientCore::Stub::Login,
                           [&request](client::LoginReq& message) { fillLogin(request, message); }, &H::fromLoginResp,
                           call)))
        return;
    if (serverTimeoutInReach(call))
        call.record.error.errorMsgZh = QString::fromUtf8(kLoginTooSlow);
    emit loginResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::updateVmInfoFromServer(const tagLoginRequest& request)
{
    const RpcShape shape = RpcShape::at(__FUNCTION__, QtDebugMsg);
    RpcResult<client::LoginResp, tagLoginReply> call;
    if (answers(unaryCall(shape, stub, &client::ClientCore::Stub::Login,
                          [&request](client::LoginReq& message) { fillLogin(request, message); }, &H::fromLoginResp,
                          call)))
        emit updateVmInfoFromServerResult(call.record, call.flag);
}

bool VdiDesktopGrpcWorker::checkAuthStatus()
{
    const RpcShape shape = RpcShape::at(__FUNCTION__, QtDebugMsg)
                             .labels("check gateway auth request:\n", "check gateway auth reply:\n")
                             .onNullStub("stubGateway is null, do nothing.", NullStub::Ignore)
                             .gatewayCall();
    RpcResult<gateway::CheckAuthStatusResp, vdiframe::NoRecord> call;
    // The terminal's real address is never sent here.
    auto fill = [](gateway::CheckAuthStatusReq& message) {
        message.set_ip("0.0.0.0");
        message.set_mac("0:0:0:0");
        message.set_client_type("0");
    };
    if (unaryCall(shape, stubGateway, &gateway::GatewayCore::Stub::CheckAuthStatus, fill, vdiframe::NoConversion(), call)
        != CallOutcome::Called)
        return false;
    if (!call.status.ok()) {
        VDI_CRITICAL << "check gateway auth status error: " << call.status.error_message().c_str();
        return false;
    }
    const bool needed = call.reply.auth_status() != 0;
    VDI_INFO << "gateway auth status " << (needed ? "true" : "false");
    return needed;
}

void VdiDesktopGrpcWorker::loginGateway(const QString& user, const QString& password)
{
    if (interruptionRequested(__FUNCTION__))
        return;
    if (user.isEmpty() || password.isEmpty()) {
        VDI_WARNING << "user or password empty, cancel login";
        tagLoginReply reply;
        reply.error.errorMsgZh = QString::fromUtf8(kGatewayLoginFailed);
        emit loginResult(reply, false);
        return;
    }
    const RpcShape shape = RpcShape::at(__FUNCTION__, QtDebugMsg)
                             .labels("login gateway request:\n", "login gateway reply:\n")
                             .onNullStub("stubGateway is null, do nothing.", NullStub::Ignore)
                             .gatewayCall();
    RpcResult<gateway::LoginGatewayResp, vdiframe::NoRecord> call;
    auto fill = [&user, &password](gateway::LoginGatewayReq& message) {
        message.mutable_client_base_info()->set_name(user.toStdString());
        message.mutable_client_base_info()->set_password(password.toStdString());
        message.mutable_client_extend_info();
    };
    if (unaryCall(shape, stubGateway, &gateway::GatewayCore::Stub::LoginGateway, fill, vdiframe::NoConversion(), call)
        != CallOutcome::Called)
        return;

    // The token decides, whatever the status says.
    if (!call.reply.gw_access_token().empty()) {
        VDI_INFO << "login gateway success";
        m_gatewayToken = call.reply.gw_access_token();
        m_gatewayUser = user;
        m_gatewayPasswd = password;
        saveGatewayInfo();
        loginInternal(m_loginRequest);
        return;
    }
    VDI_CRITICAL << "token empty, login gateway error, " << call.status.error_message().c_str() << "error code "
                 << call.reply.error().error_code();
    tagLoginReply reply;
    reply.error.errorMsgZh = QString::fromUtf8(kGatewayLoginFailed);
    if (!call.reply.error().error_msg_zh().empty())
        reply.error.errorMsgZh += QLatin1Char(' ') + H::fromStdString(call.reply.error().error_msg_zh());
    emit loginResult(reply, false);
    // Refused credentials are forgotten; the token stays.
    m_gatewayUser.clear();
    m_gatewayPasswd.clear();
    saveGatewayInfo();
}
