// Handlers of server discovery: local identity, server type, device configuration, gateways
// and controllers.
#include "vdidesktopgrpcworker_frame.h"

#include <google/protobuf/empty.pb.h>

#include "basesettings.h"
#include "utility.h"

namespace {
using H = VdiDesktopGrpcHelper;
using vdiinternal::BaseSettings;

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
    // Not found: empty texts, not null ones.
    const bool found = utility.getDeviceNetworkInfo(serverIP, port, info);
    emit deviceNetworkInfo(found ? info.ip : QStringLiteral(""), found ? info.mac : QStringLiteral(""), found);
}

void VdiDesktopGrpcWorker::queryServerTypeInfo()
{
    const char* const function = __FUNCTION__;
    const RpcShape shape = RpcShape::at(function)
                             .onNullStub("stub is null.")
                             .stepped(&m_serverTypeRetryDelay, "query server type gprc clientcontext deadline:timespec.tv_sec");
    RpcHooks<tagServerTypeInfoResp> hooks;
    hooks.onFailure = [this, function] {
        VDI_LOG_IN(QtInfoMsg, function) << "failed to query server type";
        m_serverTypeRetryDelay = nextRetryDelay(m_serverTypeRetryDelay);
        VDI_LOG_IN(QtInfoMsg, function) << "query server type count changed to:" << m_serverTypeRetryDelay;
    };
    RpcResult<common::isUseGatewayResp, tagServerTypeInfoResp> call;
    if (!answers(unaryCall(shape, stubCommon, &common::CommonCore::Stub::isUseGateway,
                           [](common::isUseGatewayReq&) {}, vdiframe::NoConversion(), call, hooks)))
        return;

    if (call.called() && call.status.ok()) {
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
    const RpcShape shape = RpcShape::at(function)
                             .labels("request:\n", "reply:\n")
                             .stepped(&m_deviceConfigRetryDelay,
                                      "query device config info gprc clientcontext deadline:timespec.tv_sec");
    RpcHooks<tagDeviceConfigInfoResp> hooks;
    // A gateway deployment also wants its gateway stub, although the call does not use it.
    hooks.precondition = [this, function] {
        if (m_serverType != BaseSettings::Gateway)
            return Gate::proceed();
        if (!stubGateway)
            return Gate::nullStub(" gateway stub is null.");
        VDI_LOG_IN(QtInfoMsg, function) << "gateway type, query device config info";
        return Gate::proceed("gateway type, stub is null.");
    };
    hooks.onFailure = [this, function] {
        VDI_LOG_IN(QtInfoMsg, function) << "failed to query device config.";
        m_deviceConfigRetryDelay = nextRetryDelay(m_deviceConfigRetryDelay);
        VDI_LOG_IN(QtInfoMsg, function) << "query device config count changed to:" << m_deviceConfigRetryDelay;
    };
    RpcResult<client::DeviceConfigInfoResp, tagDeviceConfigInfoResp> call;
    if (!answers(unaryCall(shape, stub, &client::ClientCore::Stub::queryDeviceConfigInfo,
                           [&req](client::DeviceConfigInfoReq& message) { H::toDeviceConfigInfoReq(req, message); },
                           &H::fromDeviceConfigInfoResp, call, hooks)))
        return;

    // A refusal by a server that answers leaves the step as it was.
    if (call.called() && call.flag) {
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
    RpcHooks<tagGatewayInfoResp> hooks;
    hooks.onFailure = [function] { VDI_LOG_IN(QtInfoMsg, function) << "query gateway info fail"; };
    RpcResult<common::queryGatewayInfoResp, tagGatewayInfoResp> call;
    if (answers(unaryCall(shape, stubCommon, &common::CommonCore::Stub::queryGatewayInfo, noRequest,
                          &H::fromGatewayInfoResp, call, hooks)))
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
    if (answers(unaryCall(shape, stub, &client::ClientCore::Stub::WhoAreYou, noRequest, &H::fromQueryControllerType, call)))
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
    if (answers(unaryCall(shape, stub, &client::ClientCore::Stub::QueryNodes, noRequest, &H::fromQureyControllerListResp, call)))
        emit queryControllerListResultForGrpcWorker(call.record, call.flag, serverIp);
}

void VdiDesktopGrpcWorker::slotQueryServerIpForVm()
{
    const RpcShape shape = RpcShape::at(__FUNCTION__).fixedRequest(" query server ip for vm.").redact(Redaction::None);
    RpcResult<common_message::AgentUseControllerIpResp, tagVmControllerIpResp> call;
    if (answers(unaryCall(shape, stub, &client::ClientCore::Stub::queryAgentUseControllerIp, noRequest,
                          &H::fromQueryVmControllerIpResq, call)))
        emit queryServerIpResult(call.record, call.flag);
}
