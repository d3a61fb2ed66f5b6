// Handlers of the application catalogues (remote and SaaS applications) and of the share
// terminals.
#include "vdidesktopgrpcworker_frame.h"

namespace {
using H = VdiDesktopGrpcHelper;
using Stub = client::ClientCore::Stub;
using vdiframe::filledBy;
} // namespace

// ---- Application catalogues ----------------------------------------------------------------

// The request is a whole login request.
void VdiDesktopGrpcWorker::slotGrpcWorkerGetRemoteAppList(tagLoginRequest request)
{
    const RpcShape shape =
        RpcShape::at(__FUNCTION__).labels(" package GetRemoteAppList request:\n", " package GetRemoteAppList reply:\n");
    RpcResult<client::RemoteAppListResp, tagRemoteAppListResp> call;
    if (answers(unaryCall(shape, stub, &Stub::GetRemoteAppList, filledBy(&H::toLoginReq, request),
                          &H::fromRemoteAppListResp, call)))
        emit signalGrpcWorkerGetRemoteAppListResult(call.record, call.flag);
}

// Our own rule: a request without a stub is logged and dropped, without a rebuild of the
// channels and without an answer, instead of a call through a missing stub.
void VdiDesktopGrpcWorker::slotGrpcWorkerApplyRemoteApp(tagRemoteAppApplyReq request)
{
    const RpcShape shape = RpcShape::at(__FUNCTION__)
                             .labels(" package ApplyRemoteApp request:\n", " package ApplyRemoteApp reply:\n")
                             .onNullStub(" stub is null.", NullStub::Ignore);
    RpcResult<client::RemoteAppInfoResp, tagRemoteAppApplyResp> call;
    if (answers(unaryCall(shape, stub, &Stub::getConnectAppInfo, filledBy(&H::toApplyRemoteAppReq, request),
                          &H::fromRemoteAppApplyResp, call)))
        emit signalGrpcWorkerApplyRemoteAppResult(call.record, call.flag);
}

// The request is the bare identity. Every call leaves a trace line.
void VdiDesktopGrpcWorker::slotGrpcWorkerGetSaasAppList(const tagSaasListReq& request)
{
    const char* const function = __FUNCTION__;
    const RpcShape shape =
        RpcShape::at(function).labels(" package querySaasAppList request:\n", " package querySaasAppList reply:\n");
    RpcHooks<tagSaasAppListResp> hooks;
    hooks.precondition = [function] {
        VDI_LOG_IN(QtCriticalMsg, function) << "void VdiDesktopGrpcWorker::slotGrpcWorkerGetSaasAppList(const SaasListReq&)"
                                            << "TRACE";
        return Gate::proceed();
    };
    RpcResult<client::SaasAppListResp, tagSaasAppListResp> call;
    if (answers(unaryCall(shape, stub, &Stub::querySaasAppList, filledBy(&H::toSaasAppListReq, request),
                          &H::fromSaasAppListResp, call, hooks)))
        emit signalGrpcWorkerGetSaasAppListResult(call.record, call.flag);
}

// The flag is the permission. Every answer names the application asked about; the log labels
// are those of the list.
void VdiDesktopGrpcWorker::slotGrpcWorkerQuerySaasApp(const tagSaasAppReq& request)
{
    const RpcShape shape = RpcShape::at(__FUNCTION__)
                             .labels(" package querySaasAppList request:\n", " package querySaasAppList reply:\n")
                             .redact(Redaction::Debug);
    RpcHooks<tagSaasAppResp> hooks;
    hooks.copy = [&request](tagSaasAppResp& reply) { reply.appInfo = request.appInfo; };
    RpcResult<common_message::VoidResp, tagSaasAppResp> call;
    if (answers(unaryCall(shape, stub, &Stub::querySaasApp, filledBy(&H::toSaasAppReq, request), &H::fromSaasAppResp,
                          call, hooks)))
        emit signalGrpcWorkerSaasAppPermissionResult(call.record, call.flag);
}

// ---- Share terminals -----------------------------------------------------------------------

// An answer without terminals is a failure with a text of its own, in place of the server's;
// the server's error code stays as it came.
void VdiDesktopGrpcWorker::queryShareTerminalInfo(const tagShareTerminalInfoRequest& request)
{
    RpcResult<client::ShareTerminalInfoResp, tagShareTerminalInfoReply> call;
    if (!answers(unaryCall(RpcShape::at(__FUNCTION__), stub, &Stub::queryShareTerminalInfo,
                           filledBy(&H::toShareTerminalInfoReq, request), &H::fromShareTerminalInfoResp, call)))
        return;
    if (call.called() && call.status.ok() && call.record.terminalList.isEmpty()) {
        call.flag = false;
        call.record.error.errorMsgZh = tr("无可用共享终端");
    }
    emit queryShareTerminalInfoResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::transferDesktop2ShareTerminal(const tagTransDesk2ShareTerminalRequest& request)
{
    RpcResult<common::ErrorData, tagTransDesk2ShareTerminalReply> call;
    if (answers(unaryCall(RpcShape::at(__FUNCTION__), stub, &Stub::transferDesktopToShareTerminal,
                          filledBy(&H::toTransDesk2ShareTerminalReq, request), &H::fromeTransDesk2ShareTerminalResp,
                          call)))
        emit transferDesktop2ShareTerminalResult(call.record, call.flag);
}

// The request holds a password: it is logged redacted only.
void VdiDesktopGrpcWorker::loginOakdeskHsareTerminal(const tagLoginOakdeskShareTerminalRequest& request)
{
    RpcResult<common::ErrorData, tagLoginOakdeskShareTerminalReply> call;
    if (answers(unaryCall(RpcShape::at(__FUNCTION__), stub, &Stub::LoginOakdeskOnShareTerminal,
                          filledBy(&H::toLoginOakdeskTerminalReq, request), &H::fromLoginOakdeskTerminalReq, call)))
        emit loginOakdeskShareTerminalResult(call.record, call.flag);
}
