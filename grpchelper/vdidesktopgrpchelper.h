// Conversions between the library's plain records and the generated protobuf messages.
// Stateless: every function needs nothing but its arguments and runs where it is called.
#pragma once

#include "vdidesktopgrpc_export.h"

#include <string>

#include <QString>
#include <grpcpp/support/status.h>

#include "vdigrpcrecords.h"
#include "vdigrpcrecords_account.h"
#include "vdigrpcrecords_applications.h"
#include "vdigrpcrecords_help.h"
#include "vdigrpcrecords_discovery.h"
#include "vdigrpcrecords_heartbeat.h"
#include "vdigrpcrecords_login.h"
#include "vdigrpcrecords_operations.h"

#include "client/client_core.pb.h"
#include "common/common_core.pb.h"
#include "common/common_messages.pb.h"
#include "common/error_data.pb.h"
#include "gateway/gateway_core.pb.h"

class VDIDESKTOPGRPC_EXPORT VdiDesktopGrpcHelper
{
public:
    // Text from the wire: UTF-8 over the string's explicit size, embedded NUL bytes kept.
    static QString fromStdString(std::string const& text);
    // The UTF-8 bytes of a text, for a protobuf string field.
    static std::string toStdString(const QString& text);

    // A failed transport status: its code and message, with the fixed Chinese wording.
    static void toErrorData(grpc::Status const& status, tagErrorData& errorData);
    // The server's own error block, copied as it stands.
    static void grpc2ErrorData(common::ErrorData const& error, tagErrorData& errorData);

    static void baseInfo2Grpc(const tagBaseInfo& info, client::ClientBaseInfo& message);
    static void baseInfo2Grpc(const tagBaseInfo& info, gateway::ClientBaseInfo& message);
    static void extendInfo2Grpc(const tagExtendInfo& info, client::ClientExtendInfo& message);
    static void extendInfo2Grpc(const tagExtendInfo& info, gateway::ClientExtendInfo& message);

    // Heartbeat.
    static void toHeartBeatReq(const tagHeartbeatRequest& request, client::HeartbeatReq& message);
    static void fromHeartbeatResq(const client::HeartbeatResp& message, tagHeartbeatReply& reply);

    // Server discovery.
    static void toDeviceConfigInfoReq(const tagDeviceConfigInfoReq& request, client::DeviceConfigInfoReq& message);
    static void fromDeviceConfigInfoResp(const client::DeviceConfigInfoResp& message, tagDeviceConfigInfoResp& reply);
    static void fromGatewayInfoResp(const common::queryGatewayInfoResp& message, tagGatewayInfoResp& reply);
    static void fromQureyControllerListResp(client::ResourceList& message, tagQureyControllerListResp& reply);
    static void fromQueryControllerType(const client::WhoAreYouReply& message, tagQueryControllerTypeResp& reply);
    static void fromQueryVmControllerIpResq(const common_message::AgentUseControllerIpResp& message,
                                            tagVmControllerIpResp& reply);

    // Desktops and pools, as the login, the operations and the applications carry them.
    static void grpc2PoolInfo(const client::PoolInfo& message, tagPoolInfo& pool);
    static void grpc2VMInfo(const client::VmInfo& message, tagVMInfo& vm);
    static void grpc2VMOperator(const client::ExtendOp& message, tagVMOperator& vmOperator);
    static void grpc2VMAddress(const client::VmAddress& message, tagVMAddress& address);
    static void grpc2SnapshotInfo(const client::SnapshotInfo& message, tagSnapshotInfo& snapshot);

    // Login.
    static void toLoginReq(const tagLoginRequest& request, client::LoginReq& message);
    static void fromLoginResp(const client::LoginResp& message, tagLoginReply& reply);

    // Operations on desktops and devices, their assignment and the device reports.
    static void fromApplyForVMResp(const client::ApplyForVmResp& message, tagApplyForVMReply& reply);
    static void fromOperateForVMResq(const client::OperateForVmResp& message, tagOperateForVMReply& reply);
    static void fromRecoverVMResq(const client::RecoverVmResp& message, tagRecoverVMReply& reply);
    static void fromSnapshotResq(const client::SnapshotResp& message, tagSnapshotReply& reply);
    static void fromApplyForDeviceInfoResq(const client::ApplyForDeviceInfoResp& message, tagApplyForDeviceInfoReply& reply);
    static void fromDeskTopPoolResq(const client::DeskTopPoolResp& message, tagDeskTopPoolReply& reply);
    static void fromVmInfoResp(const client::VmDetailInfoResp& message, tagQueryVmInfoResp& reply);
    static void toOperateForVMReq(const tagOperateForVMRequest& request, client::OperateForVmReq& message);
    static void toSnapshotReq(const tagSnapshotRequest& request, client::SnapshotReq& message);
    static void toModifyVMNameReq(const tagModifyVMNameRequest& request, client::ModifyVmNameReq& message);
    static void fromModifyVMNameResq(const client::ModifyVmNameResp& message, tagModifyVMNameReply& reply);
    static void toApplyForVMReq(const tagApplyForVMRequest& request, client::ApplyForVmReq& message);
    static void toApplyForDeviceInfoReq(const tagApplyForDeviceInfoRequest& request, client::ApplyForDeviceInfoReq& message);
    static void toDeskTopPoolReq(const tagDeskTopPoolRequest& request, client::DeskTopPoolReq& message);
    static void toVmInfoReq(const tagQueryVmInfoReq& request, client::VmReq& message);
    static void toRegisterDevReq(const tagRegisterDeviceRequest& request, client::RegisterDevReq& message);
    static void fromRegisterDevReq(const client::RegisterDevResp& message, tagRegisterDeviceReply& reply);
    static void toReportSuccessReq(const tagReportSuccessRequest& request, client::ReportSuccessReq& message);
    static void fromReportSuccessResq(const client::ReportSuccessResp& message, tagReportSuccessReply& reply);
    static void toUSBNotifyReq(const tagUSBNotifyRequest& request, client::USBNotifyReq& message);
    static void fromUSBNotifyResq(const client::USBNotifyResp& message, tagUSBNotifyReply& reply);
    static void RedirectStatusInfo2Grpc(const tagRedirectStatusInfoReust& info, client::RedirectStatusInfo& message);
    static void toRedirectStatusReq(const tagRedirectStatusReust& request, client::RedirectStatusReq& message);
    static void fromVoidResp(const common_message::VoidResp& message, tagVoidReply& reply);

    // Passwords, client configuration and login options.
    static void toCheckPasswordReq(const tagCheckPasswordRequest& request, client::CheckPasswordReq& message);
    static void fromCheckPasswordResq(const client::CheckPasswordResp& message, tagCheckPasswordResp& reply);
    static void toModifyPasswordReq(const tagModifyPasswordRequest& request, client::ModifyPasswordReq& message);
    static void fromModifyPasswordResq(const client::ModifyPasswordResp& message, tagModifyPasswordReply& reply);
    static void toClientReleasePasswordReq(const tagClientReleasePasswordRequest& request,
                                           client::ClientReleasePasswordReq& message);
    static void fromClientReleasePasswordResq(const client::ClientReleasePasswordResp& message,
                                              tagClientReleasePasswordReply& reply);
    static void toUpgradeReq(const tagUpgradeRequest& request, client::UpgradeReq& message);
    static void fromUpgradeResq(const client::UpgradeResp& message, tagUpgradeReply& reply);
    static void toNextCloudInfoReq(const tagNextCloudInfoReq& request, client::NextCloudInfoReq& message);
    static void fromNextCloudInfoResp(const client::NextCloudInfoResp& message, tagNextCloudInfoResp& reply);
    static void toIndividualConfigReq(const tagIndividualConfigReq& request, client::IndividualConfigReq& message);
    static void fromIndividualConfigResp(const client::IndividualConfigResp& message, tagIndividualConfigResp& reply);
    static void fromApplyForEmailResq(const client::ApplyForEmailResp& message, tagApplyForEmailReply& reply);
    static void toLoginConfigReq(const QString& deviceUuid, client::LoginConfigReq& message);
    static void fromLoginConfigResp(const client::LoginConfigResp& message, LoginConfigResp& reply);
    static void toLoginCodeReq(const LoginCodeReq& request, client::CodeReq& message);
    static void fromLoginCodeResp(const client::CodeResp& message, LoginCodeResp& reply);

    // Application catalogues and share terminals.
    static void toSaasAppListReq(const tagSaasListReq& request, client::ClientBaseInfo& message);
    static void toSaasAppReq(const tagSaasAppReq& request, client::SaasAppReq& message);
    static void toApplyRemoteAppReq(const tagRemoteAppApplyReq& request, client::RemoteAppInfoReq& message);
    static void grpc2RemoteAppInfo(const client::RemoteAppInfo& message, tagRemoteAppInfo& app);
    static void fromRemoteAppListResp(const client::RemoteAppListResp& message, tagRemoteAppListResp& reply);
    static void fromRemoteAppApplyResp(const client::RemoteAppInfoResp& message, tagRemoteAppApplyResp& reply);
    static void grpc2SaasAppInfo(const client::SaasAppInfo& message, tagSaasAppInfo& app);
    static void fromSaasAppListResp(const client::SaasAppListResp& message, tagSaasAppListResp& reply);
    static void fromSaasAppResp(const common_message::VoidResp& message, tagSaasAppResp& reply);
    static void toShareTerminalInfoReq(const tagShareTerminalInfoRequest& request, client::ShareTerminalInfoReq& message);
    static void fromShareTerminalInfoResp(const client::ShareTerminalInfoResp& message, tagShareTerminalInfoReply& reply);
    static void toTransDesk2ShareTerminalReq(const tagTransDesk2ShareTerminalRequest& request,
                                             client::TransDeskToShareTerminalReq& message);
    static void fromeTransDesk2ShareTerminalResp(const common::ErrorData& message, tagTransDesk2ShareTerminalReply& reply);
    static void toLoginOakdeskTerminalReq(const tagLoginOakdeskShareTerminalRequest& request,
                                          client::LoginOakdeskOnShareTerminalReq& message);
    static void fromLoginOakdeskTerminalReq(const common::ErrorData& message, tagLoginOakdeskShareTerminalReply& reply);

    // One-key help. The worker builds its request by hand: toOneKeyHelpReq copies the record as
    // it stands.
    static void toOneKeyHelpReq(const tagOneKeyHelpInfoRequest& request, client::OnekeyHelpReq& message);
    static void fromOneKeyHelpResq(const client::OnekeyHelpResp& message, tagOneKeyHelpInfoReply& reply);

    // A repeated wire field into a list, in the wire's order, one entry converter for all.
    template <class Repeated, class Entry, class Convert>
    static void fromRepeated(const Repeated& items, QList<Entry>& list, Convert convert)
    {
        list.reserve(list.size() + items.size());
        for (const auto& item : items) {
            Entry entry;
            convert(item, entry);
            list.append(entry);
        }
    }
};
