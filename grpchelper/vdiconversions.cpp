// Conversion steps that several families share: the desktops and pools that the login, the
// operations and the applications carry, and their control policies.
#include "vdiconversions.h"

#include "vdidesktopgrpchelper.h"

using H = VdiDesktopGrpcHelper;

namespace {

// Expiry times are read on their low 32 bits: 0 means "none set" (-2), -3 means "expired" (0).
int expiryCode(int64_t wire)
{
    const auto low = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(wire) & 0xffffffffu));
    if (low == 0)
        return -2;
    if (low == -3)
        return 0;
    return low;
}

// The fields that a pool's desktop (client::Vm) and an operation's desktop (client::VmInfo) share.
template <class Desktop>
void grpc2DesktopCore(const Desktop& message, tagVMInfo& vm)
{
    vm.vmId = message.vm_id();
    vm.vmName = H::fromStdString(message.vm_name());
    vm.vmStatus = H::fromStdString(message.vm_status());
    vm.vmUuid = H::fromStdString(message.vmuuid());
    vm.osVersion = H::fromStdString(message.os_version());
    vm.osType = message.os_type();
    vm.isPortEnable = message.is_port_enable();
    H::fromRepeated(message.address_list(), vm.addressList, &H::grpc2VMAddress);
    H::grpc2VMOperator(message.extend_op(), vm.vmOperator);
}

} // namespace

void vdiconvert::grpc2ControlPolicy(const client::ControlPolicy& message, tagControlPolicy& policy,
                                    ReconnectionTime reconnection)
{
    const client::SharePolicy& share = message.share_policy();
    policy.drivers = share.drivers();
    policy.clipboard = share.clipboard();
    policy.rdpClipboard = share.rdp_clipboard();
    policy.vdpClipboard = share.vdp_clipboard();
    policy.printers = share.printers();
    policy.smartCard = share.smart_card();
    policy.comports = share.comports();
    policy.pnpDevice = share.pnp_device();
    policy.redirectCamera = share.redirectcamera();

    const client::USBPolicy& usb = message.usb_policy();
    policy.usbEnable = usb.enable();
    policy.usbRedirectStorage = usb.usbredirectstorage();
    policy.usbRedirectCamera = usb.usbredirectcamera();
    policy.usbRedirectScanner = usb.usbredirectscanner();
    policy.usbRedirectPrinter = usb.usbredirectprinter();
    policy.usbRedirectSmartCard = usb.usbredirectsmartcard();
    policy.usbRedirectOther = usb.usbredirectother();
    policy.usbRedirectCommunications = usb.usbredirectcommunications();
    policy.usbRedirectBridgeClass = usb.usbredirectbridgeclass();
    policy.usbRedirectWirelessController = usb.usbredirectwirelesscontroller();
    policy.usbRedirectVendorSpecific = usb.usbredirectvendorspecific();
    policy.storeReadonly = usb.store_readonly();
    vdiconvert::appendTexts(usb.policy_list(), policy.policyList);

    policy.serialEnable = message.serial_policy().enable();
    H::fromRepeated(message.mix_cal_policy().program_list(), policy.programList,
                    [](const client::Program& item, tagMixCalProgram& program) {
                        program.name = H::fromStdString(item.name());
                        program.path = H::fromStdString(item.path());
                        program.parameter = H::fromStdString(item.parameter());
                        program.icon = H::fromStdString(item.icon());
                    });

    const client::WatermarkPolicy& watermark = message.watermark_policy();
    policy.color = H::fromStdString(watermark.color());
    policy.userDefine = H::fromStdString(watermark.user_define());
    policy.watermarkEnable = watermark.enable();
    policy.showIp = watermark.show_ip();
    policy.showMac = watermark.show_mac();
    policy.showTime = watermark.show_time();
    policy.fullScreen = watermark.full_screen();
    policy.fontSize = watermark.font_size();
    policy.transparent = watermark.transparent();
    policy.showUserName = watermark.show_user_name();
    policy.showComptName = watermark.show_compt_name();
    policy.rotationAngle = watermark.rotation_angle();
    policy.showLoginName = watermark.show_login_name();
    policy.showDesktopPoolName = watermark.show_desktop_pool_name();
    policy.showSystemName = watermark.show_system_name();
    policy.showPosition = watermark.show_position();

    policy.videoEncode = message.video_policy().videoencode();
    policy.spiceTls = message.video_policy().spicetls();
    if (reconnection == ReconnectionTime::Read)
        policy.reconnectionNetworkTime = message.reconnection_network_time();
    policy.parallelEnable = message.parallel_policy().enable();
}

void VdiDesktopGrpcHelper::grpc2VMOperator(const client::ExtendOp& message, tagVMOperator& vmOperator)
{
    vmOperator.shudown = message.shudown();
    vmOperator.reboot = message.reboot();
    vmOperator.powerOffReboot = message.power_off_reboot();
    vmOperator.powerOff = message.power_off();
    vmOperator.backHome = message.back_home();
    vmOperator.disconnection = message.disconnection();
    vmOperator.clientCtrlAltDel = message.client_ctrl_alt_del();
    vmOperator.logoutUser = message.logout_user();
    vmOperator.snapshot = message.snapshot();
    vmOperator.networkDetection = message.network_detection();
    vmOperator.interactShutdown = message.interact_shutdown();
    vmOperator.clientOccupy = message.client_occupy();
    vmOperator.modifyName = message.modify_name();
}

// Addresses are trimmed, and an address that is then empty is dropped.
void VdiDesktopGrpcHelper::grpc2VMAddress(const client::VmAddress& message, tagVMAddress& address)
{
    address.mac = fromStdString(message.mac());
    for (const std::string& ip : message.ip_list()) {
        const QString trimmed = fromStdString(ip).trimmed();
        if (!trimmed.isEmpty())
            address.ipList.append(trimmed);
    }
}

void VdiDesktopGrpcHelper::grpc2SnapshotInfo(const client::SnapshotInfo& message, tagSnapshotInfo& snapshot)
{
    snapshot.name = fromStdString(message.name());
    snapshot.description = fromStdString(message.description());
}

void VdiDesktopGrpcHelper::grpc2PoolInfo(const client::PoolInfo& message, tagPoolInfo& pool)
{
    pool.id = message.id();
    pool.name = fromStdString(message.name());
    pool.status = message.status();
    pool.type = message.type();
    pool.vmOsVersion = fromStdString(message.vm_os_version());
    pool.vmOsType = message.vm_os_type();
    pool.templetId = message.templetid();
    pool.offlineDate = message.offlinedate();
    pool.recoverMode = message.recovermode();
    pool.computerType = message.computer_type();
    pool.poolExpireTime = expiryCode(message.pool_expire_time());
    pool.serverAddress = fromStdString(message.server_address());
    pool.serverPort = fromStdString(message.server_port());
    pool.gatewayAccessStrategy = QString::number(message.gateway_access_strategy(), 10);
    pool.resourceName = fromStdString(message.resource_name());

    fromRepeated(message.vm_list(), pool.vmList, [&pool](const client::Vm& item, tagVM& vm) {
        grpc2DesktopCore(item, vm);
        vm.vmExpireTime = expiryCode(item.vm_expire_time());
        vm.resourceName = pool.resourceName;
        fromRepeated(item.snapshot_list(), vm.snapshotList, &H::grpc2SnapshotInfo);
    });
    grpc2VMOperator(message.extend_op(), pool);
}

void VdiDesktopGrpcHelper::grpc2VMInfo(const client::VmInfo& message, tagVMInfo& vm)
{
    grpc2DesktopCore(message, vm);
    vm.vmIsUsed = fromStdString(message.vm_is_used());
    vdiconvert::appendTexts(message.ip_list(), vm.ipList);  // as they stand, unlike the address list
    vm.domainName = fromStdString(message.domain_name());

    // Every member of the policy is read from the wire: an absent group gives zeros and empty
    // texts, not the record's defaults.
    tagControlPolicy policy;
    vdiconvert::grpc2ControlPolicy(message.control_policy(), policy, vdiconvert::ReconnectionTime::Read);
    vm.controlPolicy = policy;
}

