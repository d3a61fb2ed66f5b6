// Handlers of server discovery: local identity, server type, device configuration, gateways
// and controllers.
#include "vdidesktopgrpcworker_frame.h"

#include <google/protobuf/empty.pb.h>

#include "basesettings.h"
#include "utility.h"

namespace {
using H = VdiDesktopGrpcHelper;

void noRequest(google::protobuf::Empty&) {}

// A failure doubles the step; past 63 the ladder starts again at 1.
int nextRetryDelay(int delay)
{
    delay *= 2;
    return delay > 63 ? 1 : delay;
}
} // namespace

void VdiDesktopGrpcWorker::initDeviceInfo(QString serverIP, ushort port)
{
    Utility utility;
    tagLocalNetworkInfo info;
    const bool found = utility.getDeviceNetworkInfo(serverIP, port, info);
    emit deviceNetworkInfo(found ? info.ip : QString(), found ? info.mac : QString(), found);
}

void VdiDesktopGrpcWorker::queryServerTypeInfo()
{
    const char* const function = __FUNCTION__;
    const RpcShape shape = RpcShape::at(function)
                             .onNullStub("stub is null.")
                             .stepped(&m_serverTypeRetryDelay, "query server type gprc clientcontext deadline:timespec.tv_sec");
    RpcHooks hooks;
    hooks.onFailure = [this, function] {
        VDI_LOG_IN(qInfo, function) << "failed to query server type";
        m_serverTypeRetryDelay = nextRetryDelay(m_serverTypeRetryDelay);
        VDI_LOG_IN(qInfo, function) << "query server type count changed to:" << m_serverTypeRetryDelay;
    };
    RpcResult<common::isUseGatewayResp, tagServerTypeInfoResp> call;
    if (!unaryCall(shape, stubCommon, &common::CommonCore::Stub::isUseGateway, [](common::isUseGatewayReq&) {},
                   vdiframe::NoConversion(), call, hooks))
        return;

    if (call.status.ok()) {
        // The reply's own error block is not looked at: an answer is a success.
        const uint useGateway = uint(call.reply.usegateway());
        VDI_INFO << " query server type result, ip: " << m_host << " type: " << (useGateway ? "GATEWAY" : "CONTROLLER");
        if (useGateway > 1)
            VDI_CRITICAL << " type of reply is not legal. use type of setting.ini";
        else
            m_serverType = int(useGateway);
        call.record.serverType = m_serverType;
        if (m_serverType == BaseSettings::Gateway)
            initGateway();
        m_serverTypeRetryDelay = 1;
        VDI_INFO << "query server type count changed to init:" << m_serverTypeRetryDelay;
        call.flag = true;
    }
    emit queryServerTypeInfoResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::queryDeviceConfigInfo(const tagDeviceConfigInfoReq& req)
{
    const char* const function = __FUNCTION__;
    RpcResult<client::DeviceConfigInfoResp, tagDeviceConfigInfoResp> call;
    if (interruptionRequested(function))
        return;
    // A gateway deployment also wants its gateway stub, although the call does not use it.
    if (m_serverType == BaseSettings::Gateway) {
        const char* missing = nullptr;
        if (!stubGateway) {
            missing = " gateway stub is null.";
        } else {
            VDI_INFO << "gateway type, query device config info";
            if (!stub)
                missing = "gateway type, stub is null.";
        }
        if (missing) {
            if (answerNullStub(function, missing, NullStub::Answer, call.record.error))
                emit queryDeviceConfigInfoResult(call.record, false);
            return;
        }
    }

    const RpcShape shape = RpcShape::at(function)
                             .labels("request:\n", "reply:\n")
                             .stepped(&m_deviceConfigRetryDelay,
                                      "query device config info gprc clientcontext deadline:timespec.tv_sec");
    RpcHooks hooks;
    hooks.onFailure = [this, function] {
        VDI_LOG_IN(qInfo, function) << "failed to query device config.";
        m_deviceConfigRetryDelay = nextRetryDelay(m_deviceConfigRetryDelay);
        VDI_LOG_IN(qInfo, function) << "query device config count changed to:" << m_deviceConfigRetryDelay;
    };
    if (!unaryCall(shape, stub, &client::ClientCore::Stub::queryDeviceConfigInfo,
                   [&req](client::DeviceConfigInfoReq& message) { H::toDeviceConfigInfoReq(req, message); },
                   &H::fromDeviceConfigInfoResp, call, hooks))
        return;

    // A refusal by a server that answers leaves the step as it was.
    if (call.flag) {
        m_deviceConfigRetryDelay = 1;
        VDI_INFO << "succeed to query device config and query device config count changed to init:"
                 << m_deviceConfigRetryDelay;
    }
    emit queryDeviceConfigInfoResult(call.record, call.flag);
}

void VdiDesktopGrpcWorker::queryGatewayInfo()
{
    const char* const function = __FUNCTION__;
    const RpcShape shape = RpcShape::at(function)
                             .labels("Begin to query gateway info", "reply:\n")
                             .labelOnly()
                             .redact(Redaction::None)
                             .onNullStub("stub is null.")
                             .deadline(CallContext::Fixed);
    RpcHooks hooks;
    hooks.onFailure = [function] { VDI_LOG_IN(qInfo, function) << "query gateway info fail"; };
    RpcResult<common::queryGatewayInfoResp, tagGatewayInfoResp> call;
    if (unaryCall(shape, stubCommon, &common::CommonCore::Stub::queryGatewayInfo, noRequest,
                  &H::fromGatewayInfoResp, call, hooks))
        emit queryGatewayInfoResult(call.record, call.flag);
}

// The two controller queries ask the server of the current stub whatever serverIp says; it is
// handed back so that the application can tell the answers apart. A null stub answers nothing.
void VdiDesktopGrpcWorker::onQueryControllerType(QString serverIp)
{
    VDI_INFO << " serverIp: " << serverIp;
    const RpcShape shape = RpcShape::at(__FUNCTION__)
                             .labels(" package request:\n", " package QueryControllerType reply:\n")
                             .redact(Redaction::None)
                             .onNullStub(" stub is null.", NullStub::Silent);
    RpcResult<client::WhoAreYouReply, tagQueryControllerTypeResp> call;
    if (unaryCall(shape, stub, &client::ClientCore::Stub::WhoAreYou, noRequest, &H::fromQueryControllerType, call, {}))
        emit queryControllerTypeResultForGrpcWorker(call.record, call.flag, serverIp);
}

void VdiDesktopGrpcWorker::onQueryControllerList(QString serverIp)
{
    VDI_INFO << " serverIp: " << serverIp;
    const RpcShape shape = RpcShape::at(__FUNCTION__)
                             .labels(" package request:\n", " package QueryControllerList reply:\n")
                             .redact(Redaction::None)
                             .onNullStub(" stub is null.", NullStub::Silent);
    RpcResult<client::ResourceList, tagQureyControllerListResp> call;
    if (unaryCall(shape, stub, &client::ClientCore::Stub::QueryNodes, noRequest, &H::fromQureyControllerListResp, call, {}))
        emit queryControllerListResultForGrpcWorker(call.record, call.flag, serverIp);
}

void VdiDesktopGrpcWorker::slotQueryServerIpForVm()
{
    const RpcShape shape = RpcShape::at(__FUNCTION__).fixedRequest(" query server ip for vm.").redact(Redaction::None);
    RpcResult<common_message::AgentUseControllerIpResp, tagVmControllerIpResp> call;
    if (unaryCall(shape, stub, &client::ClientCore::Stub::queryAgentUseControllerIp, noRequest,
                  &H::fromQueryVmControllerIpResq, call, {}))
        emit queryServerIpResult(call.record, call.flag);
}
