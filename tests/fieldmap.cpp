#include "fieldmap.h"

#include <string>

#include <QRegularExpression>

#include <google/protobuf/descriptor.h>

namespace vditest {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

QString shown(int value) { return QString::number(value); }
QString shown(qint64 value) { return QString::number(value); }
QString shown(bool value) { return QLatin1String(value ? "true" : "false"); }
QString shown(const QString& value) { return value; }
QString shown(const QList<QString>& value) { return QStringList(value).join(QLatin1Char('|')); }
QString shown(const QByteArray& value) { return QString::fromUtf8(value); }

QString give(int& member, int number) { return shown(member = number); }
QString give(qint64& member, int number) { return shown(member = 5000000000LL + number); }
QString give(bool& member, int) { return shown(member = true); }
QString give(QString& member, int number) { return member = QStringLiteral("text %1").arg(number); }
QString give(QList<QString>& member, int number)
{
    member = {QStringLiteral("text %1a").arg(number), QStringLiteral("text %1b").arg(number)};
    return shown(member);
}

QString give(QByteArray& member, int number)
{
    member = QByteArrayLiteral("bytes ") + QByteArray::number(number);
    return shown(member);
}

namespace {
void fillField(Message& message, const FieldDescriptor* field, int& next, const QString& path, QStringList& paths);

void fill(Message& message, int& next, const QString& prefix, QStringList& paths)
{
    const google::protobuf::Descriptor* descriptor = message.GetDescriptor();
    for (int i = 0; i < descriptor->field_count(); ++i) {
        const FieldDescriptor* field = descriptor->field(i);
        fillField(message, field, next, prefix + QString::fromStdString(field->name()), paths);
    }
}

void fillField(Message& message, const FieldDescriptor* field, int& next, const QString& path, QStringList& paths)
{
    const Reflection* reflection = message.GetReflection();
    const auto text = [&next] { return "text " + std::to_string(next++); };
    if (field->is_repeated()) {
        for (int entry = 0; entry < 2; ++entry) {
            switch (field->cpp_type()) {
            case FieldDescriptor::CPPTYPE_INT32: reflection->AddInt32(&message, field, next++); break;
            case FieldDescriptor::CPPTYPE_INT64: reflection->AddInt64(&message, field, 5000000000LL + next++); break;
            case FieldDescriptor::CPPTYPE_STRING: reflection->AddString(&message, field, text()); break;
            case FieldDescriptor::CPPTYPE_MESSAGE:
                fill(*reflection->AddMessage(&message, field), next, QStringLiteral("%1[%2].").arg(path).arg(entry),
                     paths);
                continue;
            default: return;
            }
        }
        if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE)
            paths << path;
        return;
    }
    switch (field->cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32: reflection->SetInt32(&message, field, next++); break;
    case FieldDescriptor::CPPTYPE_INT64: reflection->SetInt64(&message, field, 5000000000LL + next++); break;
    case FieldDescriptor::CPPTYPE_BOOL: reflection->SetBool(&message, field, true); break;
    case FieldDescriptor::CPPTYPE_STRING: reflection->SetString(&message, field, text()); break;
    case FieldDescriptor::CPPTYPE_MESSAGE:
        fill(*reflection->MutableMessage(&message, field), next, path + QLatin1Char('.'), paths);
        return;
    default: return;
    }
    paths << path;
}

// One step of a path: a field's name and, for an entry of a list, its index.
struct Step {
    const FieldDescriptor* field = nullptr;
    int index = -1;
};

Step stepOf(const Message& message, const QString& name)
{
    Step step;
    QString fieldName = name;
    const int bracket = name.indexOf(QLatin1Char('['));
    if (bracket > 0) {
        fieldName = name.left(bracket);
        step.index = name.mid(bracket + 1).chopped(1).toInt();
    }
    step.field = message.GetDescriptor()->FindFieldByName(fieldName.toStdString());
    if (step.field && step.field->is_repeated() != (step.index >= 0)
        && step.field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE)
        step.field = nullptr;
    return step;
}

// The message that holds the last step of the path, and that step.
const Message* holderOf(const Message& message, const QString& path, Step& last)
{
    const Message* current = &message;
    const QStringList names = path.split(QLatin1Char('.'));
    for (int i = 0; i < names.size(); ++i) {
        last = stepOf(*current, names[i]);
        if (!last.field)
            return nullptr;
        if (i + 1 == names.size())
            return current;
        if (last.field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE)
            return nullptr;
        const Reflection* reflection = current->GetReflection();
        if (last.index < 0)
            current = &reflection->GetMessage(*current, last.field);
        else if (last.index < reflection->FieldSize(*current, last.field))
            current = &reflection->GetRepeatedMessage(*current, last.field, last.index);
        else
            return nullptr;
    }
    return nullptr;
}

QString scalarText(const Message& message, const FieldDescriptor* field, int index)
{
    const Reflection* r = message.GetReflection();
    switch (field->cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
        return QString::number(index < 0 ? r->GetInt32(message, field) : r->GetRepeatedInt32(message, field, index));
    case FieldDescriptor::CPPTYPE_INT64:
        return QString::number(index < 0 ? r->GetInt64(message, field) : r->GetRepeatedInt64(message, field, index));
    case FieldDescriptor::CPPTYPE_BOOL:
        return shown(index < 0 ? r->GetBool(message, field) : r->GetRepeatedBool(message, field, index));
    case FieldDescriptor::CPPTYPE_STRING:
        return QString::fromStdString(index < 0 ? r->GetString(message, field)
                                                : r->GetRepeatedString(message, field, index));
    default:
        return QString();
    }
}
} // namespace

QStringList fillEverything(Message& message)
{
    int next = 101;
    QStringList paths;
    fill(message, next, QString(), paths);
    return paths;
}

QString wireText(const Message& message, const QString& path)
{
    Step last;
    const Message* holder = path.isEmpty() ? nullptr : holderOf(message, path, last);
    if (!holder || last.field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE)
        return QStringLiteral("<no field %1>").arg(path);
    if (!last.field->is_repeated())
        return scalarText(*holder, last.field, -1);
    QStringList entries;
    for (int i = 0; i < holder->GetReflection()->FieldSize(*holder, last.field); ++i)
        entries << scalarText(*holder, last.field, i);
    return entries.join(QLatin1Char('|'));
}

QString wireMismatch(const Message& message, const QString& expected)
{
    static const QRegularExpression pair(QStringLiteral(R"re(([\w.\[\]]+):\s*(?:'([^']*)'|"([^"]*)"|(\S+)))re"));
    QStringList wrong;
    int matched = 0;
    for (auto it = pair.globalMatch(expected); it.hasNext(); ++matched) {
        const QRegularExpressionMatch m = it.next();
        const QString want = m.captured(2) + m.captured(3) + m.captured(4);
        const QString got = wireText(message, m.captured(1));
        if (got != want)
            wrong << detail::mismatch(m.captured(1), got, want);
    }
    if (!matched)
        wrong << QStringLiteral("nothing to compare in \"%1\"").arg(expected);
    return wrong.join(QLatin1Char('\n'));
}

bool isBool(const Message& message, const QString& path)
{
    Step last;
    return !path.isEmpty() && !path.contains(QLatin1Char('[')) && holderOf(message, path, last)
           && last.field->cpp_type() == FieldDescriptor::CPPTYPE_BOOL && !last.field->is_repeated();
}

bool setBool(Message& message, const QString& path)
{
    if (path.isEmpty() || path.contains(QLatin1Char('[')))
        return false;
    Message* current = &message;
    const QStringList names = path.split(QLatin1Char('.'));
    for (int i = 0; i < names.size(); ++i) {
        const FieldDescriptor* field = current->GetDescriptor()->FindFieldByName(names[i].toStdString());
        if (!field || field->is_repeated())
            return false;
        if (i + 1 < names.size()) {
            if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE)
                return false;
            current = current->GetReflection()->MutableMessage(current, field);
        } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_BOOL) {
            current->GetReflection()->SetBool(current, field, true);
            return true;
        }
    }
    return false;
}

QStringList setPaths(const Message& message, const QString& prefix)
{
    std::vector<const FieldDescriptor*> fields;
    message.GetReflection()->ListFields(message, &fields);
    QStringList paths;
    for (const FieldDescriptor* field : fields) {
        const QString path = prefix + QString::fromStdString(field->name());
        const google::protobuf::Reflection* reflection = message.GetReflection();
        if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE)
            paths << path;
        else if (!field->is_repeated())
            paths << setPaths(reflection->GetMessage(message, field), path + QLatin1Char('.'));
        else
            for (int i = 0; i < reflection->FieldSize(message, field); ++i)
                paths << setPaths(reflection->GetRepeatedMessage(message, field, i), QStringLiteral("%1[%2].").arg(path).arg(i));
    }
    return paths;
}

namespace detail {
// A name without list indices stands for every entry: "pool_list.imageUuid".
bool isDropped(const QString& path, const QStringList& dropped)
{
    static const QRegularExpression index(QStringLiteral("\\[\\d+\\]"));
    const QString anyEntry = QString(path).remove(index);
    for (const QString& drop : dropped) {
        if (!drop.contains(QLatin1Char('[')) && anyEntry != path && isDropped(anyEntry, {drop}))
            return true;
        if (path == drop || (drop.endsWith(QLatin1Char('.')) && path.startsWith(drop))
            || path.startsWith(drop + QLatin1Char('.')) || path.startsWith(drop + QLatin1Char('[')))
            return true;
    }
    return false;
}

QString mismatch(const QString& member, const QString& got, const QString& expected)
{
    return QStringLiteral("%1 is \"%2\", not \"%3\"").arg(member, got, expected);
}

QString low32Text(const QString& wire)
{
    return QString::number(qint32(quint32(wire.toLongLong())));
}
} // namespace detail

} // namespace vditest

namespace vditest {

FieldMap<tagErrorData> errorMap()
{
    using R = tagErrorData;
    return {VDI_FIELD(R, errorCode, "error_code"), VDI_FIELD(R, errorMsgZh, "error_msg_zh"),
            VDI_FIELD(R, errorMsgEn, "error_msg_en")};
}

FieldMap<tagBaseInfo> identityMap()
{
    using R = tagBaseInfo;
    return {VDI_FIELD(R, name, "name"), VDI_FIELD(R, password, "password"), VDI_FIELD(R, domain, "domain"),
            VDI_FIELD(R, ip, "ip"), VDI_FIELD(R, mac, "mac"), VDI_FIELD(R, deviceId, "device_id"),
            VDI_FIELD(R, deviceName, "device_name"), VDI_FIELD(R, vmId, "vm_id"), VDI_FIELD(R, authType, "auth_type"),
            VDI_FIELD(R, smsCode, "sms_code"), VDI_FIELD(R, refreshFlag, "refresh_flag"),
            VDI_FIELD(R, clientType, "client_type"), VDI_FIELD(R, protocolType, "protocol_type"),
            VDI_FIELD(R, computerType, "computer_type"), VDI_FIELD(R, vmUuid, "vmUuid"),
            VDI_FIELD(R, isOpenldap, "isOpenldap"), VDI_FIELD(R, ticket, "ticket")};
}

FieldMap<tagExtendInfo> extendMap()
{
    using R = tagExtendInfo;
    return {VDI_FIELD(R, clientLanguage, "client_language"), VDI_FIELD(R, clientVersion, "client_version"),
            VDI_FIELD(R, vendor, "vendor"), VDI_FIELD(R, model, "model"), VDI_FIELD(R, osType, "os_type"),
            VDI_FIELD(R, osVersion, "os_version"), VDI_FIELD(R, computerType, "computer_type"),
            VDI_FIELD(R, cpuArch, "cpu_arch"), VDI_FIELD(R, pineletVersion, "pinelet_version")};
}

FieldMap<tagVMOperator> vmOperatorMap()
{
    using R = tagVMOperator;
    return {VDI_FIELD(R, shudown, "shudown"), VDI_FIELD(R, reboot, "reboot"),
            VDI_FIELD(R, powerOffReboot, "power_off_reboot"), VDI_FIELD(R, powerOff, "power_off"),
            VDI_FIELD(R, backHome, "back_home"), VDI_FIELD(R, disconnection, "disconnection"),
            VDI_FIELD(R, clientCtrlAltDel, "client_ctrl_alt_del"), VDI_FIELD(R, logoutUser, "logout_user"),
            VDI_FIELD(R, snapshot, "snapshot"), VDI_FIELD(R, networkDetection, "network_detection"),
            VDI_FIELD(R, interactShutdown, "interact_shutdown"), VDI_FIELD(R, clientOccupy, "client_occupy"),
            VDI_FIELD(R, modifyName, "modify_name")};
}

FieldMap<tagControlPolicy> controlPolicyMap()
{
    using R = tagControlPolicy;
    using P = tagMixCalProgram;
    const FieldMap<P> program{VDI_FIELD(P, name, "name"), VDI_FIELD(P, path, "path"),
                              VDI_FIELD(P, parameter, "parameter"), VDI_FIELD(P, icon, "icon")};
    return FieldMap<R>{
               VDI_FIELD(R, drivers, "share_policy.drivers"), VDI_FIELD(R, clipboard, "share_policy.clipboard"),
               VDI_FIELD(R, rdpClipboard, "share_policy.rdp_clipboard"),
               VDI_FIELD(R, vdpClipboard, "share_policy.vdp_clipboard"),
               VDI_FIELD(R, printers, "share_policy.printers"), VDI_FIELD(R, smartCard, "share_policy.smart_card"),
               VDI_FIELD(R, comports, "share_policy.comports"), VDI_FIELD(R, pnpDevice, "share_policy.pnp_device"),
               VDI_FIELD(R, redirectCamera, "share_policy.redirectCamera"),
               VDI_FIELD(R, usbEnable, "usb_policy.enable"),
               VDI_FIELD(R, usbRedirectStorage, "usb_policy.usbRedirectStorage"),
               VDI_FIELD(R, usbRedirectCamera, "usb_policy.usbRedirectCamera"),
               VDI_FIELD(R, usbRedirectScanner, "usb_policy.usbRedirectScanner"),
               VDI_FIELD(R, usbRedirectPrinter, "usb_policy.usbRedirectPrinter"),
               VDI_FIELD(R, usbRedirectSmartCard, "usb_policy.usbRedirectSmartCard"),
               VDI_FIELD(R, usbRedirectOther, "usb_policy.usbRedirectOther"),
               VDI_FIELD(R, usbRedirectCommunications, "usb_policy.usbRedirectCommunications"),
               VDI_FIELD(R, usbRedirectBridgeClass, "usb_policy.usbRedirectBridgeClass"),
               VDI_FIELD(R, usbRedirectWirelessController, "usb_policy.usbRedirectWirelessController"),
               VDI_FIELD(R, usbRedirectVendorSpecific, "usb_policy.usbRedirectVendorSpecific"),
               VDI_FIELD(R, storeReadonly, "usb_policy.store_readonly"),
               VDI_FIELD(R, policyList, "usb_policy.policy_list"), VDI_FIELD(R, serialEnable, "serial_policy.enable"),
               VDI_FIELD(R, color, "watermark_policy.color"), VDI_FIELD(R, userDefine, "watermark_policy.user_define"),
               VDI_FIELD(R, watermarkEnable, "watermark_policy.enable"),
               VDI_FIELD(R, showIp, "watermark_policy.show_ip"), VDI_FIELD(R, showMac, "watermark_policy.show_mac"),
               VDI_FIELD(R, showTime, "watermark_policy.show_time"),
               VDI_FIELD(R, fullScreen, "watermark_policy.full_screen"),
               VDI_FIELD(R, fontSize, "watermark_policy.font_size"),
               VDI_FIELD(R, transparent, "watermark_policy.transparent"),
               VDI_FIELD(R, showUserName, "watermark_policy.show_user_name"),
               VDI_FIELD(R, showComptName, "watermark_policy.show_compt_name"),
               VDI_FIELD(R, rotationAngle, "watermark_policy.rotation_angle"),
               VDI_FIELD(R, showLoginName, "watermark_policy.show_login_name"),
               VDI_FIELD(R, showDesktopPoolName, "watermark_policy.show_desktop_pool_name"),
               VDI_FIELD(R, showSystemName, "watermark_policy.show_system_name"),
               VDI_FIELD(R, showPosition, "watermark_policy.show_position"),
               VDI_FIELD(R, videoEncode, "video_policy.videoEncode"), VDI_FIELD(R, spiceTls, "video_policy.spiceTls"),
               VDI_FIELD(R, reconnectionNetworkTime, "reconnection_network_time"),
               VDI_FIELD(R, parallelEnable, "parallel_policy.enable"),
           }
           + VDI_LIST(R, programList, "mix_cal_policy.program_list", program);
}

namespace {
// What a pool's desktop and an operation's desktop share.
template <class R>
FieldMap<R> desktopCoreMap()
{
    using A = tagVMAddress;
    return FieldMap<R>{VDI_FIELD(R, vmId, "vm_id"), VDI_FIELD(R, vmName, "vm_name"),
                       VDI_FIELD(R, vmStatus, "vm_status"), VDI_FIELD(R, osVersion, "os_version"),
                       VDI_FIELD(R, osType, "os_type"), VDI_FIELD(R, isPortEnable, "is_port_enable"),
                       VDI_FIELD(R, vmUuid, "vmUuid")}
           + VDI_LIST(R, addressList, "address_list",
                      FieldMap<A>({VDI_FIELD(A, mac, "mac"), VDI_FIELD(A, ipList, "ip_list")}))
           + VDI_PART(R, vmOperator, "extend_op", vmOperatorMap());
}
} // namespace

FieldMap<tagVMInfo> vmInfoMap()
{
    using R = tagVMInfo;
    return desktopCoreMap<R>()
           + FieldMap<R>{VDI_FIELD(R, vmIsUsed, "vm_is_used"), VDI_FIELD(R, ipList, "ip_list"),
                         VDI_FIELD(R, domainName, "domain_name")}
           + VDI_PART(R, controlPolicy, "control_policy", controlPolicyMap());
}

FieldMap<tagPoolInfo> poolMap()
{
    using R = tagPoolInfo;
    using V = tagVM;
    using S = tagSnapshotInfo;
    const FieldMap<V> vm =
        desktopCoreMap<V>() + FieldMap<V>{VDI_LOW32(V, vmExpireTime, "vm_expire_time")}
        + VDI_LIST(V, snapshotList, "snapshot_list",
                   FieldMap<S>({VDI_FIELD(S, name, "name"), VDI_FIELD(S, description, "description")}));
    FieldMap<R> map = FieldMap<R>{VDI_FIELD(R, id, "id"), VDI_FIELD(R, name, "name"), VDI_FIELD(R, status, "status"),
                                  VDI_FIELD(R, type, "type"), VDI_FIELD(R, vmOsVersion, "vm_os_version"),
                                  VDI_FIELD(R, vmOsType, "vm_os_type"), VDI_FIELD(R, templetId, "templetId"),
                                  VDI_FIELD(R, offlineDate, "offlineDate"), VDI_FIELD(R, recoverMode, "recoverMode"),
                                  VDI_FIELD(R, computerType, "computer_type"),
                                  VDI_LOW32(R, poolExpireTime, "pool_expire_time"),
                                  VDI_FIELD(R, serverAddress, "server_address"), VDI_FIELD(R, serverPort, "server_port"),
                                  VDI_FIELD(R, gatewayAccessStrategy, "gateway_access_strategy"),
                                  VDI_FIELD(R, resourceName, "resource_name"), VDI_KEPT(R, reservedNumber),
                                  VDI_KEPT(R, reservedText), VDI_KEPT(R, isExPool)}
                      + partOf<R>(vmOperatorMap(), QString(), QStringLiteral("extend_op"),
                                  [](R& r) -> tagVMOperator& { return r; })
                      + VDI_LIST(R, vmList, "vm_list", vm);
    for (int i = 0; i < 2; ++i) {  // each desktop names its pool's resource
        map.push_back({QStringLiteral("vmList[%1].resourceName").arg(i), QStringLiteral("resource_name"),
                       [i](const R& r) { return r.vmList.value(i).resourceName; }, {}});
    }
    return map;
}

} // namespace vditest
