// Handlers of the account and the client's configuration: passwords, the terminal's authority
// password, upgrade, the file-sharing server, branding and the administrator's mail settings;
// and of the login options: what the server offers, login codes, LDAP and the quantum binding.
#include "vdidesktopgrpcworker_frame.h"

#include <google/protobuf/empty.pb.h>

#include "basesettings.h"

namespace {
using H = VdiDesktopGrpcHelper;
using Stub = client::ClientCore::Stub;
using vdiframe::filledBy;
using vdiinternal::BaseSettings;

// The server's name for itself; a client reaches it by the address it connected to.
const char* const kServerItself = "127.0.0.1";
} // namespace

// ---- Passwords -----------------------------------------------------------------------------

void VdiDesktopGrpcWorker::checkPassword(const tagCheckPasswordRequest& request)
{
    RpcResult<client::CheckPasswordResp, tagCheckPasswordResp> call;
    if (answers(unaryCall(RpcShape::at(__FUNCTION__, QtDebugMsg).labels(" package request:\n", " reply:\n"), stub,
                          &Stub::CheckPassword, filledBy(&H::toCheckPasswordReq, request), &H::fromCheckPasswordResq,
                          call)))
        emit checkPasswordResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::modifyPassword(const tagModifyPasswordRequest& request)
{
    RpcResult<client::ModifyPasswordResp, tagModifyPasswordReply> call;
    if (answers(unaryCall(RpcShape::at(__FUNCTION__, QtDebugMsg).redact(Redaction::Debug), stub, &Stub::ModifyPassword,
                          filledBy(&H::toModifyPasswordReq, request), &H::fromModifyPasswordResq, call)))
        emit modifyPasswordResult(call.record, call.flag);
}

// Ten seconds whatever the worker's timeout, the gateway token alone as metadata, and the reply,
// which holds the password in the clear, redacted before it is logged.
void VdiDesktopGrpcWorker::requestTerminalAuthorityPassword(const tagClientReleasePasswordRequest& request)
{
    const RpcShape shape =
        RpcShape::at(__FUNCTION__).redact(Redaction::Print, true).deadline(CallContext::FixedWithToken);
    RpcResult<client::ClientReleasePasswordResp, tagClientReleasePasswordReply> call;
    if (answers(unaryCall(shape, stub, &Stub::ClientReleasePassword, filledBy(&H::toClientReleasePasswordReq, request),
                          &H::fromClientReleasePasswordResq, call)))
        emit requestTerminalAuthorityPasswordResult(call.record, call.flag);
}

// ---- Client configuration ------------------------------------------------------------------

void VdiDesktopGrpcWorker::checkUpgrade(const tagUpgradeRequest& request)
{
    const char* const function = __FUNCTION__;
    RpcHooks<tagUpgradeReply> hooks;
    // A gateway deployment offers no upgrade: no call, and no answer at all.
    hooks.precondition = [this, function] {
        if (m_serverType != BaseSettings::Gateway)
            return Gate::proceed();
        VDI_LOG_IN(QtWarningMsg, function) << "gateway type, no check upgrade";
        return Gate::decline();
    };
    RpcResult<client::UpgradeResp, tagUpgradeReply> call;
    if (answers(unaryCall(RpcShape::at(function, QtDebugMsg), stub, &Stub::Upgrade, filledBy(&H::toUpgradeReq, request),
                          &H::fromUpgradeResq, call, hooks)))
        emit checkUpgradeResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::queryNextCloudInfo(const tagNextCloudInfoReq& request)
{
    RpcResult<client::NextCloudInfoResp, tagNextCloudInfoResp> call;
    if (!answers(unaryCall(RpcShape::at(__FUNCTION__).labels("request:\n", "reply:\n"), stub, &Stub::queryNextCloudInfo,
                           filledBy(&H::toNextCloudInfoReq, request), &H::fromNextCloudInfoResp, call)))
        return;
    // Only an accepted answer is looked at, and only this exact text is replaced.
    if (call.flag && call.record.serverIp == QLatin1String(kServerItself))
        call.record.serverIp = m_host;
    emit queryNextCloudInfoResult(call.record, call.flag);
}

// Without a stub the channels are rebuilt, but nothing is answered.
void VdiDesktopGrpcWorker::slotQueryIndividualConfigForGrpcWorker(tagIndividualConfigReq request)
{
    const RpcShape shape = RpcShape::at(__FUNCTION__)
                             .labels(" package QueryIndividualConfig request:\n", " package QueryIndividualConfig reply:\n")
                             .onNullStub(" stub is null.", NullStub::Silent);
    RpcResult<client::IndividualConfigResp, tagIndividualConfigResp> call;
    if (answers(unaryCall(shape, stub, &Stub::queryIndividualConfig, filledBy(&H::toIndividualConfigReq, request),
                          &H::fromIndividualConfigResp, call)))
        emit queryIndividualConfigInfoResultForGrpcWorker(call.record, call.flag);
}

void VdiDesktopGrpcWorker::applyForEmail()
{
    const RpcShape shape = RpcShape::at(__FUNCTION__).fixedRequest(" email for administrator.").redact(Redaction::None);
    RpcResult<client::ApplyForEmailResp, tagApplyForEmailReply> call;
    if (answers(unaryCall(shape, stub, &Stub::ApplyForEmailInfo, [](google::protobuf::Empty&) {},
                          &H::fromApplyForEmailResq, call)))
        emit applyForEmailResult(call.record, call.flag);
}

// ---- Login options -------------------------------------------------------------------------

void VdiDesktopGrpcWorker::handleQueryLoginConfig(const QString& uuid)
{
    const char* const function = "VdiDesktopGrpcWorker::handleQueryLoginConfig";
    const RpcShape shape = RpcShape::at(function)
                             .labels("request:\n", "reply:\n")
                             .onNullStub("VdiDesktopGrpcWorker::handleQueryLoginConfig: stub is null.");
    RpcResult<client::LoginConfigResp, LoginConfigResp> call;
    RpcHooks<LoginConfigResp> hooks;
    hooks.onFailure = [&call, function] {
        VDI_LOG_IN(QtWarningMsg, function) << "VdiDesktopGrpcWorker::handleQueryLoginConfig: failed"
                                           << int(call.status.error_code());
    };
    if (answers(unaryCall(shape, stub, &Stub::getLoginConfig, filledBy(&H::toLoginConfigReq, uuid),
                          &H::fromLoginConfigResp, call, hooks)))
        emit queryLoginConfigResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::handleRequestLoginCode(const LoginCodeReq& request)
{
    const RpcShape shape = RpcShape::at("VdiDesktopGrpcWorker::handleRequestLoginCode")
                             .labels("request:\n", "reply:\n")
                             .onNullStub("VdiDesktopGrpcWorker::handleRequestLoginCode: stub is null.");
    RpcResult<client::CodeResp, LoginCodeResp> call;
    if (answers(unaryCall(shape, stub, &Stub::getCode, filledBy(&H::toLoginCodeReq, request), &H::fromLoginCodeResp,
                          call)))
        emit queryLoginCodeResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::handleCheckAndSaveLdapPasswd(const tagCheckPasswordRequest& request)
{
    RpcResult<client::CheckPasswordResp, tagCheckPasswordResp> call;
    if (answers(unaryCall(RpcShape::at(__FUNCTION__).labels(" package request:\n", " reply:\n"), stub,
                          &Stub::CheckAndSaveLdapPassword, filledBy(&H::toCheckPasswordReq, request),
                          &H::fromCheckPasswordResq, call)))
        emit checkAndSaveLdapPasswdResult(call.record, call.flag);
}

// This client has no quantum feature: nothing is asked, nothing is answered.
void VdiDesktopGrpcWorker::quantumConfigReq(const QString& userName)
{
    Q_UNUSED(userName)
    if (interruptionRequested(__FUNCTION__))
        return;
    VDI_INFO << "quantum not surpported by this client! stay tuned!";
}

// The flag says that the call went through, bindResult whether the binding was made. A failed
// call answers a fresh record: no error text, and no rebuild of the channels.
void VdiDesktopGrpcWorker::userQuantumBindReq(const QString& userName, const QString& userId, const QString& spmId)
{
    // Our own rule: without a stub the answer is false with a fresh record, as for a failed
    // call, instead of a call on a missing stub.
    const RpcShape shape = RpcShape::at(__FUNCTION__)
                             .labels("confirmQuantumBind request:\n", "confirmQuantumBind reply:\n")
                             .onNullStub(" stub is null.", NullStub::Bare)
                             .failureLeftToHandler();
    const auto fill = [&](client::UserQuantumBindReq& message) {
        message.set_username(H::toStdString(userName));
        message.set_userid(H::toStdString(userId));
        message.set_spmid(H::toStdString(spmId));
    };
    // bindResult alone: the server's error block is not taken over.
    const auto convert = [](const client::UserQuantumBindResp& message, UserQuantumBindReply& reply) {
        reply.bindResult = message.bindresult();
    };
    RpcResult<client::UserQuantumBindResp, UserQuantumBindReply> call;
    if (!answers(unaryCall(shape, stub, &Stub::confirmQuantumBind, fill, convert, call)))
        return;
    const bool through = call.called() && call.status.ok();
    if (through)
        VDI_INFO << "confirmQuantumBind reply.bindResult:\n" << (call.record.bindResult ? "true" : "false");
    emit onUserQuantumBindResp(through, call.record);
}
