// Handlers of the operations on desktops and devices: VM operations, the assignment of a desktop
// with its overrun rule, device registration and status reports.
#include "vdidesktopgrpcworker_frame.h"

namespace {
using H = VdiDesktopGrpcHelper;
using Stub = client::ClientCore::Stub;

// A run of deadline overruns with the server in reach ends at this count.
const int kApplyRetryLimit = 5;

// The server's own timeout texts are replaced when the server is still in reach.
const char* const kApplyTooSlow = " 服务器响应连接虚拟机请求超时，请稍后重试。 ";
const char* const kRegisterTooSlow = " 服务器响应注册设备请求超时。 ";
const char16_t* const kReportTooSlow = u" 服务器响应上线请求超时，请稍后重新连接。 ";

bool deadlineExceeded(const grpc::Status& status)
{
    return status.error_code() == grpc::StatusCode::DEADLINE_EXCEEDED;
}

} // namespace

// ---- VM operations -------------------------------------------------------------------------

void VdiDesktopGrpcWorker::operateVM(const tagOperateForVMRequest& request)
{
    const char* const function = __FUNCTION__;
    const RpcShape shape = RpcShape::at(function, QtDebugMsg);
    RpcHooks<tagOperateForVMReply> hooks;
    hooks.precondition = [&request, function] {
        VDI_LOG_IN(QtDebugMsg, function) << "ready to send vm operate message to controller, operate type = "
                                         << request.opType;
        return Gate::proceed();
    };
    hooks.copy = [&request](tagOperateForVMReply& reply) {
        reply.vmNode = request.vmNode;
        reply.opType = request.opType;
    };
    RpcResult<client::OperateForVmResp, tagOperateForVMReply> call;
    const CallOutcome outcome = unaryCall(
        shape, stub, &Stub::OperateForVm,
        [&request](client::OperateForVmReq& message) { H::toOperateForVMReq(request, message); },
        &H::fromOperateForVMResq, call, hooks);
    if (!answers(outcome))
        return;
    if (call.called()) {
        if (call.status.ok()) {
            VDI_DEBUG << "error code = " << call.reply.error().error_code();
            // A delivered operation counts once the server has answered; its error stays readable.
            if (request.opType == VdiGrpc::OperateVMDelivered)
                call.flag = true;
        }
        VDI_INFO << "receive vm operate message result from controller, result = " << (call.flag ? "true" : "false");
    }
    emit operateVMResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::recoverVM(const tagOperateForVMRequest& request)
{
    RpcHooks<tagRecoverVMReply> hooks;
    hooks.copy = [&request](tagRecoverVMReply& reply) { reply.vmNode = request.vmNode; };
    RpcResult<client::RecoverVmResp, tagRecoverVMReply> call;
    if (answers(unaryCall(RpcShape::at(__FUNCTION__, QtDebugMsg), stub, &Stub::RecoverVm,
                          [&request](client::OperateForVmReq& message) { H::toOperateForVMReq(request, message); },
                          &H::fromRecoverVMResq, call, hooks)))
        emit recoverVMResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::snapshot(const tagSnapshotRequest& request)
{
    const int opType = request.opType;
    RpcHooks<tagSnapshotReply> hooks;
    hooks.copy = [&request](tagSnapshotReply& reply) { reply.vmNode = request.vmNode; };
    hooks.copyAfterCall = [&request](tagSnapshotReply& reply) { reply.vmId = QString::number(request.baseInfo.vmId); };
    RpcResult<client::SnapshotResp, tagSnapshotReply> call;
    if (!answers(unaryCall(RpcShape::at(__FUNCTION__, QtDebugMsg).redact(Redaction::Debug), stub, &Stub::Snapshot,
                           [&request](client::SnapshotReq& message) { H::toSnapshotReq(request, message); },
                           &H::fromSnapshotResq, call, hooks)))
        return;
    emit snapshotResult(call.record, call.flag, opType);
    // A query's answer also comes as the number of snapshots.
    if (call.flag && opType == VdiGrpc::SnapshotQuery)
        emit snapshotQueryResult(call.record.snapshotList.size());
}

void VdiDesktopGrpcWorker::modifyVMName(const tagModifyVMNameRequest& request)
{
    RpcHooks<tagModifyVMNameReply> hooks;
    hooks.copy = [&request](tagModifyVMNameReply& reply) {
        reply.vmNode = request.vmNode;
        reply.vmNameNew = request.vmNameNew;
    };
    RpcResult<client::ModifyVmNameResp, tagModifyVMNameReply> call;
    if (answers(unaryCall(RpcShape::at(__FUNCTION__, QtDebugMsg).redact(Redaction::Debug), stub, &Stub::ModifyVmName,
                          [&request](client::ModifyVmNameReq& message) { H::toModifyVMNameReq(request, message); },
                          &H::fromModifyVMNameResq, call, hooks)))
        emit modifyVMNameResult(call.record, call.flag);
}

// ---- Desktop assignment --------------------------------------------------------------------

// An overrun of the deadline with the server in reach means that the server is still at work:
// the answer is true (ask again) until the fifth overrun in a row, shared by both handlers.
// True when the handler has answered.
bool VdiDesktopGrpcWorker::answerApplyOverrun(const char* function, const char* line, const QString& vmUuid)
{
    if (tryConnetRemoteHost()) {
        ++m_applyRetryCount;
        VDI_LOG_IN(QtInfoMsg, function) << line << vmUuid;
    }
    return m_applyRetryCount < kApplyRetryLimit;
}

void VdiDesktopGrpcWorker::applyForVM(const tagApplyForVMRequest& request)
{
    const char* const function = __FUNCTION__;
    const RpcShape shape =
        RpcShape::at(function).labels(" package request:\n", " package reply:\n").redact(Redaction::Print, true);
    RpcHooks<tagApplyForVMReply> hooks;
    hooks.copy = [&request](tagApplyForVMReply& reply) { reply.vmNode = request.vmNode; };
    hooks.copyAfterCall = [&request](tagApplyForVMReply& reply) {
        reply.id = request.id;
        reply.port = request.port;
        reply.startDomain = request.startDomain;
    };
    RpcResult<client::ApplyForVmResp, tagApplyForVMReply> call;
    const CallOutcome outcome =
        unaryCall(shape, stub, &Stub::ApplyForVm,
                  [&request](client::ApplyForVmReq& message) { H::toApplyForVMReq(request, message); },
                  &H::fromApplyForVMResp, call, hooks);
    if (!answers(outcome))
        return;
    if (!call.called()) {
        emit applyForVMResult(call.record, false);
        return;
    }
    // The frame has filled the error (errorCode 4) of an overrun already.
    if (deadlineExceeded(call.status)) {
        if (answerApplyOverrun(function, "Query virtual machine : server not  ready try against, vmUuid = ",
                               call.record.vmInfo.vmUuid)) {
            emit applyForVMResult(call.record, true);
            return;
        }
    }
    m_applyRetryCount = 0;
    if (!call.status.ok()) {
        // The fifth overrun in a row goes the failure way a second time.
        if (deadlineExceeded(call.status))
            statusCodeToErrorData(call.status, call.record.error);
        emit applyForVMResult(call.record, false);
        return;
    }
    if (serverTimeoutInReach(call))
        call.record.error.errorMsgZh = QString::fromLocal8Bit(kApplyTooSlow);
    emit applyForVMResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::applyForVMOfQuery(const tagOperateForVMRequest& request)
{
    const char* const function = __FUNCTION__;
    const RpcShape shape = RpcShape::at(function)
                             .labels(" package request:\n", " Query virtual machine (package 0x1006) reply:\n")
                             .onNullStub(" Query virtual machine error: stub is null.")
                             .failureLeftToHandler();
    RpcHooks<tagOperateForVMReply> hooks;
    hooks.copy = [&request](tagOperateForVMReply& reply) { reply.vmNode = request.vmNode; };
    RpcResult<client::OperateForVmResp, tagOperateForVMReply> call;
    const CallOutcome outcome = unaryCall(
        shape, stub, &Stub::OperateForVm,
        [&request](client::OperateForVmReq& message) { H::toOperateForVMReq(request, message); },
        &H::fromOperateForVMResq, call, hooks);
    if (!answers(outcome))
        return;
    if (!call.called()) {
        emit applyForVMOfQueryResult(call.record, false);
        return;
    }
    // Below the limit an overrun is answered true with the error left unfilled.
    if (deadlineExceeded(call.status)
        && answerApplyOverrun(function, "Query virtual machine : server not  ready try against, vmUuid: ",
                              call.record.vmInfo.vmUuid)) {
        emit applyForVMOfQueryResult(call.record, true);
        return;
    }
    m_applyRetryCount = 0;
    if (!call.status.ok()) {
        statusCodeToErrorData(call.status, call.record.error);
        emit applyForVMOfQueryResult(call.record, false);
        return;
    }
    if (call.flag)
        VDI_INFO << "Query virtual machine. vmType: " << request.vmNode.nodeIndex << ", vmUuid: "
                 << call.record.vmInfo.vmUuid;
    emit applyForVMOfQueryResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::applyForDeviceInfo(const tagApplyForDeviceInfoRequest& request)
{
    RpcHooks<tagApplyForDeviceInfoReply> hooks;
    hooks.copy = [&request](tagApplyForDeviceInfoReply& reply) { reply.vmNode = request.vmNode; };
    RpcResult<client::ApplyForDeviceInfoResp, tagApplyForDeviceInfoReply> call;
    if (answers(unaryCall(
            RpcShape::at(__FUNCTION__), stub, &Stub::ApplyForDeviceInfo,
            [&request](client::ApplyForDeviceInfoReq& message) { H::toApplyForDeviceInfoReq(request, message); },
            &H::fromApplyForDeviceInfoResq, call, hooks)))
        emit applyForDeviceInfoResult(call.record, call.flag);
}

// A fixed 10 s and no metadata; the reply is converted whatever the status.
void VdiDesktopGrpcWorker::queryVmInfo(const tagQueryVmInfoReq& request)
{
    const RpcShape shape = RpcShape::at(__FUNCTION__)
                             .labels("request:\n", "reply:\n")
                             .deadline(CallContext::Fixed)
                             .convertedBeforeStatus();
    RpcResult<client::VmDetailInfoResp, tagQueryVmInfoResp> call;
    if (answers(unaryCall(shape, stub, &Stub::queryVmDetailInfo,
                          [&request](client::VmReq& message) { H::toVmInfoReq(request, message); },
                          &H::fromVmInfoResp, call)))
        emit queryVmInfoResult(call.record, call.flag);
}

// ---- Device and status reports -------------------------------------------------------------

void VdiDesktopGrpcWorker::registerDevice(const tagRegisterDeviceRequest& request)
{
    RpcResult<client::RegisterDevResp, tagRegisterDeviceReply> call;
    if (!answers(unaryCall(RpcShape::at(__FUNCTION__), stub, &Stub::RegisterDevice,
                           [&request](client::RegisterDevReq& message) { H::toRegisterDevReq(request, message); },
                           &H::fromRegisterDevReq, call)))
        return;
    if (serverTimeoutInReach(call))
        call.record.error.errorMsgZh = QString::fromLocal8Bit(kRegisterTooSlow);
    emit registerDeviceResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::reportStatusOfVM(const tagReportSuccessRequest& request)
{
    RpcHooks<tagReportSuccessReply> hooks;
    hooks.copy = [&request](tagReportSuccessReply& reply) { reply.vmNode = request.vmNode; };
    hooks.copyAfterCall = [&request](tagReportSuccessReply& reply) { reply.vmId = request.baseInfo.vmId; };
    RpcResult<client::ReportSuccessResp, tagReportSuccessReply> call;
    if (!answers(unaryCall(RpcShape::at(__FUNCTION__).labels(" package request:\n", "package reply:\n"), stub,
                           &Stub::ReportSuccess,
                           [&request](client::ReportSuccessReq& message) { H::toReportSuccessReq(request, message); },
                           &H::fromReportSuccessResq, call, hooks)))
        return;
    if (serverTimeoutInReach(call))
        call.record.error.errorMsgZh = QString::fromUtf16(kReportTooSlow);
    emit reportStatusOfVMResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::usbNotify(const tagUSBNotifyRequest& request)
{
    RpcHooks<tagUSBNotifyReply> hooks;
    hooks.copy = [&request](tagUSBNotifyReply& reply) { reply.vmNode = request.vmNode; };
    RpcResult<client::USBNotifyResp, tagUSBNotifyReply> call;
    if (answers(unaryCall(RpcShape::at(__FUNCTION__).labels(" package request:\n", " reply:\n"), stub, &Stub::USBNotify,
                          [&request](client::USBNotifyReq& message) { H::toUSBNotifyReq(request, message); },
                          &H::fromUSBNotifyResq, call, hooks)))
        emit usbNotifyResult(call.record, call.flag);
}

// Its answer reaches no one: the facade does not pass it on.
void VdiDesktopGrpcWorker::reportRedirectStatus(const tagRedirectStatusReust& request)
{
    RpcResult<common_message::VoidResp, tagVoidReply> call;
    if (answers(unaryCall(RpcShape::at(__FUNCTION__).labels(" package request:\n", " reply:\n"), stub,
                          &Stub::reportRedirectStatus,
                          [&request](client::RedirectStatusReq& message) { H::toRedirectStatusReq(request, message); },
                          &H::fromVoidResp, call)))
        emit reportRedirectStatusResult(call.record, call.flag);
}
