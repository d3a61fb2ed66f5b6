// Conversion of the login reply and of desktops.
#include "testsupport.h"
#include "wirefields.h"

#include <algorithm>
#include <functional>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include "vdidesktopgrpchelper.h"

using H = VdiDesktopGrpcHelper;

namespace {
using google::protobuf::Message;
using vditest::fillDistinct;
using vditest::fillEverything;
using vditest::wireNumber;
using vditest::wireText;

template <class Record>
struct WireField {
    int Record::*member;
    const char* name;
    const char* wire;
};

// Compares each member with its wire field and checks that the table maps every number of the
// message; the mismatches are returned.
template <class Record>
QStringList fieldMapMismatches(const std::vector<WireField<Record>>& table, const Record& record,
                               const Message& message, QStringList numbers)
{
    QStringList mismatches;
    for (const WireField<Record>& field : table) {
        if (record.*field.member != wireNumber(message, QLatin1String(field.wire)))
            mismatches << QStringLiteral("%1 is %2, %3 is %4")
                              .arg(QLatin1String(field.name))
                              .arg(record.*field.member)
                              .arg(QLatin1String(field.wire))
                              .arg(wireNumber(message, QLatin1String(field.wire)));
        numbers.removeOne(QLatin1String(field.wire));
    }
    for (const QString& unmapped : numbers)
        mismatches << QStringLiteral("%1 is mapped by no member").arg(unmapped);
    return mismatches;
}

#define FIELD(Record, member, wire) WireField<Record>{&Record::member, #member, wire}

const std::vector<WireField<tagVMOperator>> kVMOperatorFields{
    FIELD(tagVMOperator, shudown, "shudown"),
    FIELD(tagVMOperator, reboot, "reboot"),
    FIELD(tagVMOperator, powerOffReboot, "power_off_reboot"),
    FIELD(tagVMOperator, powerOff, "power_off"),
    FIELD(tagVMOperator, backHome, "back_home"),
    FIELD(tagVMOperator, disconnection, "disconnection"),
    FIELD(tagVMOperator, clientCtrlAltDel, "client_ctrl_alt_del"),
    FIELD(tagVMOperator, logoutUser, "logout_user"),
    FIELD(tagVMOperator, snapshot, "snapshot"),
    FIELD(tagVMOperator, networkDetection, "network_detection"),
    FIELD(tagVMOperator, interactShutdown, "interact_shutdown"),
    FIELD(tagVMOperator, clientOccupy, "client_occupy"),
    FIELD(tagVMOperator, modifyName, "modify_name"),
};

const std::vector<WireField<tagControlPolicy>> kControlPolicyFields{
    FIELD(tagControlPolicy, drivers, "share_policy.drivers"),
    FIELD(tagControlPolicy, clipboard, "share_policy.clipboard"),
    FIELD(tagControlPolicy, rdpClipboard, "share_policy.rdp_clipboard"),
    FIELD(tagControlPolicy, vdpClipboard, "share_policy.vdp_clipboard"),
    FIELD(tagControlPolicy, printers, "share_policy.printers"),
    FIELD(tagControlPolicy, smartCard, "share_policy.smart_card"),
    FIELD(tagControlPolicy, comports, "share_policy.comports"),
    FIELD(tagControlPolicy, pnpDevice, "share_policy.pnp_device"),
    FIELD(tagControlPolicy, redirectCamera, "share_policy.redirectCamera"),
    FIELD(tagControlPolicy, usbEnable, "usb_policy.enable"),
    FIELD(tagControlPolicy, usbRedirectStorage, "usb_policy.usbRedirectStorage"),
    FIELD(tagControlPolicy, usbRedirectCamera, "usb_policy.usbRedirectCamera"),
    FIELD(tagControlPolicy, usbRedirectScanner, "usb_policy.usbRedirectScanner"),
    FIELD(tagControlPolicy, usbRedirectPrinter, "usb_policy.usbRedirectPrinter"),
    FIELD(tagControlPolicy, usbRedirectSmartCard, "usb_policy.usbRedirectSmartCard"),
    FIELD(tagControlPolicy, usbRedirectOther, "usb_policy.usbRedirectOther"),
    FIELD(tagControlPolicy, usbRedirectCommunications, "usb_policy.usbRedirectCommunications"),
    FIELD(tagControlPolicy, usbRedirectBridgeClass, "usb_policy.usbRedirectBridgeClass"),
    FIELD(tagControlPolicy, usbRedirectWirelessController, "usb_policy.usbRedirectWirelessController"),
    FIELD(tagControlPolicy, usbRedirectVendorSpecific, "usb_policy.usbRedirectVendorSpecific"),
    FIELD(tagControlPolicy, storeReadonly, "usb_policy.store_readonly"),
    FIELD(tagControlPolicy, serialEnable, "serial_policy.enable"),
    FIELD(tagControlPolicy, watermarkEnable, "watermark_policy.enable"),
    FIELD(tagControlPolicy, showIp, "watermark_policy.show_ip"),
    FIELD(tagControlPolicy, showMac, "watermark_policy.show_mac"),
    FIELD(tagControlPolicy, showTime, "watermark_policy.show_time"),
    FIELD(tagControlPolicy, fullScreen, "watermark_policy.full_screen"),
    FIELD(tagControlPolicy, fontSize, "watermark_policy.font_size"),
    FIELD(tagControlPolicy, transparent, "watermark_policy.transparent"),
    FIELD(tagControlPolicy, showUserName, "watermark_policy.show_user_name"),
    FIELD(tagControlPolicy, showComptName, "watermark_policy.show_compt_name"),
    FIELD(tagControlPolicy, rotationAngle, "watermark_policy.rotation_angle"),
    FIELD(tagControlPolicy, showLoginName, "watermark_policy.show_login_name"),
    FIELD(tagControlPolicy, showDesktopPoolName, "watermark_policy.show_desktop_pool_name"),
    FIELD(tagControlPolicy, showSystemName, "watermark_policy.show_system_name"),
    FIELD(tagControlPolicy, showPosition, "watermark_policy.show_position"),
    FIELD(tagControlPolicy, videoEncode, "video_policy.videoEncode"),
    FIELD(tagControlPolicy, spiceTls, "video_policy.spiceTls"),
    FIELD(tagControlPolicy, reconnectionNetworkTime, "reconnection_network_time"),
    FIELD(tagControlPolicy, parallelEnable, "parallel_policy.enable"),
};

#undef FIELD

QString shown(int value) { return QString::number(value); }
QString shown(qint64 value) { return QString::number(value); }
QString shown(bool value) { return QLatin1String(value ? "true" : "false"); }
QString shown(const QString& value) { return value; }
QString shown(const QList<QString>& value) { return QStringList(value).join(QLatin1Char('|')); }

// A member of a reply record, as text, and the wire field that fills it; a member without a wire
// field is one that the conversion leaves as default construction made it.
template <class Record>
struct Member {
    QString name;
    QString wire;
    std::function<QString(const Record&)> read;
};

#define MEMBER(Record, member, wire)                                                                \
    Member<Record>                                                                                 \
    {                                                                                              \
        QLatin1String(#member), QLatin1String(wire), [](const Record& r) { return shown(r.member); } \
    }
#define UNTOUCHED(Record, member)                                                                  \
    Member<Record>                                                                                 \
    {                                                                                              \
        QLatin1String(#member), QString(), [](const Record& r) { return shown(r.member); }         \
    }

// Adds the members of a part of the record (`part` picks it out) under the part's own names.
template <class Record, class Part, class Get>
void addPart(std::vector<Member<Record>>& table, const std::vector<Member<Part>>& members, const QString& name,
             const QString& wire, Get part)
{
    for (const Member<Part>& member : members) {
        const std::function<QString(const Part&)> read = member.read;
        table.push_back({name + member.name, member.wire.isEmpty() ? QString() : wire + member.wire,
                         [read, part](const Record& record) { return read(part(record)); }});
    }
}

template <class Part>
std::vector<Member<Part>> asMembers(const std::vector<WireField<Part>>& fields)
{
    std::vector<Member<Part>> members;
    for (const WireField<Part>& field : fields)
        members.push_back({QLatin1String(field.name), QLatin1String(field.wire),
                           [field](const Part& part) { return shown(part.*field.member); }});
    return members;
}

// The single-valued members of a desktop; its lists are left to the tests above.
const std::vector<Member<tagVMInfo>> kVMInfoMembers = [] {
    std::vector<Member<tagVMInfo>> members{
        MEMBER(tagVMInfo, vmId, "vm_id"),
        MEMBER(tagVMInfo, vmName, "vm_name"),
        MEMBER(tagVMInfo, vmStatus, "vm_status"),
        MEMBER(tagVMInfo, vmIsUsed, "vm_is_used"),
        MEMBER(tagVMInfo, osVersion, "os_version"),
        MEMBER(tagVMInfo, osType, "os_type"),
        MEMBER(tagVMInfo, isPortEnable, "is_port_enable"),
        MEMBER(tagVMInfo, vmUuid, "vmUuid"),
        MEMBER(tagVMInfo, domainName, "domain_name"),
        MEMBER(tagVMInfo, controlPolicy.color, "control_policy.watermark_policy.color"),
        MEMBER(tagVMInfo, controlPolicy.userDefine, "control_policy.watermark_policy.user_define"),
    };
    addPart(members, asMembers(kVMOperatorFields), QStringLiteral("vmOperator."), QStringLiteral("extend_op."),
            [](const tagVMInfo& vm) -> const tagVMOperator& { return vm.vmOperator; });
    addPart(members, asMembers(kControlPolicyFields), QStringLiteral("controlPolicy."),
            QStringLiteral("control_policy."),
            [](const tagVMInfo& vm) -> const tagControlPolicy& { return vm.controlPolicy; });
    return members;
}();

// Every reply's `error`, and the `vmNode` that only the handler fills.
template <class Record>
void addError(std::vector<Member<Record>>& table)
{
    static const std::vector<Member<tagErrorData>> error{
        MEMBER(tagErrorData, errorCode, "error_code"),
        MEMBER(tagErrorData, errorMsgZh, "error_msg_zh"),
        MEMBER(tagErrorData, errorMsgEn, "error_msg_en"),
    };
    addPart(table, error, QStringLiteral("error."), QStringLiteral("error."),
            [](const Record& record) -> const tagErrorData& { return record.error; });
}

template <class Record>
void addUntouchedNode(std::vector<Member<Record>>& table)
{
    static const std::vector<Member<tagVmNodeInfo>> node{
        UNTOUCHED(tagVmNodeInfo, nodeId),
        UNTOUCHED(tagVmNodeInfo, nodeName),
        UNTOUCHED(tagVmNodeInfo, nodeIndex),
    };
    addPart(table, node, QStringLiteral("vmNode."), QString(),
            [](const Record& record) -> const tagVmNodeInfo& { return record.vmNode; });
}

// Compares each member with its wire field, or with a default-constructed record when it has
// none. Every path of `filled` must fill a member, be `dropped` (a path ending in '.' drops a
// whole sub-message) or lie under `elsewhere`, checked by other tests; and no member may hold the
// value of a dropped field. The mismatches are returned.
template <class Record>
QStringList memberMismatches(const std::vector<Member<Record>>& table, const Record& record, const Message& message,
                             const QStringList& filled, const QStringList& dropped = {},
                             const QString& elsewhere = QString())
{
    QStringList mismatches;
    QStringList unmapped = filled;
    const Record untouched{};
    for (const Member<Record>& member : table) {
        const QString expected = member.wire.isEmpty() ? member.read(untouched) : wireText(message, member.wire);
        if (member.read(record) != expected)
            mismatches << QStringLiteral("%1 is \"%2\", not \"%3\"").arg(member.name, member.read(record), expected);
        unmapped.removeAll(member.wire);
    }
    for (const QString& path : filled) {
        const bool isDropped = std::any_of(dropped.begin(), dropped.end(), [&path](const QString& drop) {
            return path == drop || (drop.endsWith(QLatin1Char('.')) && path.startsWith(drop));
        });
        if (!isDropped)
            continue;
        unmapped.removeAll(path);
        for (const Member<Record>& member : table) {
            if (member.read(record) == wireText(message, path))
                mismatches << QStringLiteral("%1 holds the value of the dropped %2").arg(member.name, path);
        }
    }
    for (const QString& path : unmapped) {
        if (elsewhere.isEmpty() || !path.startsWith(elsewhere))
            mismatches << QStringLiteral("%1 fills no member").arg(path);
    }
    return mismatches;
}
} // namespace

class TestDesktops : public QObject
{
    Q_OBJECT
private slots:
    void expiryCoding_data();
    void expiryCoding();
    void addresses();
    void vmOperatorFieldMap();
    void controlPolicyFieldMap();
    void absentGroupsGiveZeros();
    void loginReplyPools();
    void failedReplyIsConvertedInFull();
    void vmDetailsKeepLowBits();
    void applyForVMReplyFieldMap();
    void operateForVMReplyFieldMap();
    void recoverVMReplyFieldMap();
    void snapshotReplyKeepsOrder();
    void deviceInfoReplyKeepsOrder();
    void deskTopPoolReplyFieldMap();
};

void TestDesktops::expiryCoding_data()
{
    QTest::addColumn<qint64>("wire");
    QTest::addColumn<int>("coded");
    QTest::newRow("zero: none set") << qint64(0) << -2;
    QTest::newRow("-3: expired") << qint64(-3) << 0;
    QTest::newRow("2^32: low bits zero") << qint64(4294967296LL) << -2;
    QTest::newRow("2^32 - 3: low bits -3") << qint64(4294967293LL) << 0;
    QTest::newRow("plain time") << qint64(1700000000) << 1700000000;
    QTest::newRow("high bits ignored") << qint64(4294967296LL + 5) << 5;
}

void TestDesktops::expiryCoding()
{
    QFETCH(qint64, wire);
    QFETCH(int, coded);
    client::PoolInfo message;
    message.set_pool_expire_time(wire);
    message.add_vm_list()->set_vm_expire_time(wire);
    tagPoolInfo pool;
    H::grpc2PoolInfo(message, pool);
    QCOMPARE(pool.poolExpireTime, coded);
    QCOMPARE(pool.vmList.at(0).vmExpireTime, coded);
}

void TestDesktops::addresses()
{
    // Addresses are cleaned in address lists...
    client::VmAddress address;
    address.set_mac("52:54:00:00:00:01");
    for (const char* ip : {" 10.0.0.1 ", "", "  "})
        address.add_ip_list(ip);
    tagVMAddress converted;
    H::grpc2VMAddress(address, converted);
    QCOMPARE(converted.mac, QStringLiteral("52:54:00:00:00:01"));
    QCOMPARE(converted.ipList, QList<QString>{QStringLiteral("10.0.0.1")});

    // ...also inside a VmInfo, whose own ip_list is kept as it stands.
    client::VmInfo vm;
    *vm.add_address_list() = address;
    for (const char* ip : {" 10.0.0.1 ", "", "  "})
        vm.add_ip_list(ip);
    tagVMInfo info;
    H::grpc2VMInfo(vm, info);
    QCOMPARE(info.ipList, (QList<QString>{QStringLiteral(" 10.0.0.1 "), QString(), QStringLiteral("  ")}));
    QCOMPARE(info.addressList.size(), 1);
    QCOMPARE(info.addressList.at(0).ipList, QList<QString>{QStringLiteral("10.0.0.1")});
}

void TestDesktops::vmOperatorFieldMap()
{
    client::PoolInfo pool;
    int next = 101;
    const QStringList numbers = fillDistinct(*pool.mutable_extend_op(), next);
    fillDistinct(*pool.add_vm_list()->mutable_extend_op(), next);

    tagVMOperator direct;
    H::grpc2VMOperator(pool.extend_op(), direct);
    QStringList mismatches = fieldMapMismatches(kVMOperatorFields, direct, pool.extend_op(), numbers);
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));

    // The pool's own actions and those of its desktop, each from its own extend_op.
    tagPoolInfo converted;
    H::grpc2PoolInfo(pool, converted);
    mismatches = fieldMapMismatches<tagVMOperator>(kVMOperatorFields, converted, pool.extend_op(), numbers);
    mismatches += fieldMapMismatches(kVMOperatorFields, converted.vmList.at(0).vmOperator, pool.vm_list(0).extend_op(),
                                     numbers);
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
}

void TestDesktops::controlPolicyFieldMap()
{
    client::VmInfo vm;
    int next = 101;
    const QStringList numbers = fillDistinct(*vm.mutable_control_policy(), next);
    tagVMInfo converted;
    H::grpc2VMInfo(vm, converted);
    const QStringList mismatches = fieldMapMismatches(kControlPolicyFields, converted.controlPolicy,
                                                      vm.control_policy(), numbers);
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
    const client::WatermarkPolicy& watermark = vm.control_policy().watermark_policy();
    QCOMPARE(converted.controlPolicy.color, QString::fromStdString(watermark.color()));
    QCOMPARE(converted.controlPolicy.userDefine, QString::fromStdString(watermark.user_define()));
}

void TestDesktops::absentGroupsGiveZeros()
{
    // A desktop without extend_op: zeros, not the record's defaults.
    client::PoolInfo pool;
    pool.add_vm_list()->set_vm_name("no-ops");
    tagPoolInfo converted;
    H::grpc2PoolInfo(pool, converted);
    QCOMPARE(tagVMOperator().disconnection, 1);
    QCOMPARE(converted.vmList.at(0).vmOperator.disconnection, 0);
    QCOMPARE(converted.vmList.at(0).vmOperator.shudown, 0);
    QCOMPARE(converted.disconnection, 0);  // the pool's own, absent too
    QCOMPARE(converted.gatewayAccessStrategy, QStringLiteral("0"));

    // A VmInfo without control_policy, and one with only a watermark group.
    client::VmInfo bare;
    tagVMInfo info;
    H::grpc2VMInfo(bare, info);
    QCOMPARE(tagControlPolicy().fontSize, 12);
    QCOMPARE(info.controlPolicy.fontSize, 0);
    QCOMPARE(info.controlPolicy.color, QString());
    QCOMPARE(info.controlPolicy.userDefine, QString());
    QCOMPARE(info.controlPolicy.drivers, 0);
    QCOMPARE(info.controlPolicy.showPosition, 0);

    client::VmInfo watermarked;
    auto* policy = watermarked.mutable_control_policy();
    policy->mutable_watermark_policy()->set_color("ff0000");
    policy->mutable_watermark_policy()->set_font_size(16);
    policy->mutable_usb_policy()->add_policy_list("0781:5581");
    policy->mutable_mix_cal_policy()->add_program_list()->set_name("calc");
    policy->set_reconnection_network_time(30);
    tagVMInfo withPolicy;
    H::grpc2VMInfo(watermarked, withPolicy);
    QCOMPARE(withPolicy.controlPolicy.color, QStringLiteral("ff0000"));
    QCOMPARE(withPolicy.controlPolicy.fontSize, 16);
    QCOMPARE(withPolicy.controlPolicy.clipboard, 0);
    QCOMPARE(withPolicy.controlPolicy.policyList, QList<QString>{QStringLiteral("0781:5581")});
    QCOMPARE(withPolicy.controlPolicy.programList.size(), 1);
    QCOMPARE(withPolicy.controlPolicy.programList.at(0).name, QStringLiteral("calc"));
    QCOMPARE(withPolicy.controlPolicy.reconnectionNetworkTime, 30);
}

void TestDesktops::loginReplyPools()
{
    client::LoginResp reply;
    reply.set_name("alice");
    reply.set_user_id(5000000000LL);
    reply.set_smstimout(60);
    reply.set_due_date(5000000001LL);
    reply.set_user_expire_time(6000000002LL);
    reply.set_use_gateway(1);  // dropped
    for (const char* name : {"first", "second"}) {
        client::PoolInfo* pool = reply.add_pool_list();
        pool->set_name(name);
        pool->set_resource_name(std::string("res-") + name);
        pool->set_gateway_access_strategy(2);
        pool->mutable_extend_op()->set_reboot(1);
        client::Vm* vm = pool->add_vm_list();
        vm->set_vm_id(11);
        vm->set_vmuuid("uuid-11");
        vm->add_snapshot_list()->set_name("before-update");
        vm->mutable_extend_op()->set_disconnection(1);
        auto* address = vm->add_address_list();
        address->add_ip_list("10.1.0.11");
    }
    reply.add_ex_pool_list()->set_name("extra");

    tagLoginReply converted;
    H::fromLoginResp(reply, converted);
    QCOMPARE(converted.name, QStringLiteral("alice"));
    QCOMPARE(converted.userId, qint64(5000000000LL));
    QCOMPARE(converted.smsTimout, 60);
    QCOMPARE(converted.dueDate, qint64(5000000001LL));
    QCOMPARE(converted.userExpireTime, qint64(6000000002LL));
    QCOMPARE(converted.error.errorCode, 0);
    QCOMPARE(converted.poolList.size(), 3);
    QCOMPARE(converted.poolList[0].name, QStringLiteral("first"));
    QCOMPARE(converted.poolList[1].name, QStringLiteral("second"));
    QCOMPARE(converted.poolList[2].name, QStringLiteral("extra"));
    QCOMPARE(converted.poolList[0].isExPool, false);
    QCOMPARE(converted.poolList[1].isExPool, false);
    QCOMPARE(converted.poolList[2].isExPool, true);

    const tagPoolInfo& pool = converted.poolList[1];
    QCOMPARE(pool.gatewayAccessStrategy, QStringLiteral("2"));
    QCOMPARE(pool.reboot, 1);  // the pool's own allowed actions
    QCOMPARE(pool.vmList.size(), 1);
    const tagVM& vm = pool.vmList[0];
    QCOMPARE(vm.vmId, qint64(11));
    QCOMPARE(vm.vmUuid, QStringLiteral("uuid-11"));
    QCOMPARE(vm.resourceName, QStringLiteral("res-second"));
    QCOMPARE(vm.snapshotList.size(), 1);
    QCOMPARE(vm.snapshotList[0].name, QStringLiteral("before-update"));
    QCOMPARE(vm.vmOperator.disconnection, 1);
    QCOMPARE(vm.addressList.at(0).ipList.at(0), QStringLiteral("10.1.0.11"));
}

void TestDesktops::failedReplyIsConvertedInFull()
{
    client::LoginResp reply;
    reply.mutable_error()->set_error_code(3);
    reply.mutable_error()->set_error_msg_zh("账号已过期");
    reply.set_domain("corp");
    reply.add_pool_list()->set_name("still-here");
    tagLoginReply converted;
    H::fromLoginResp(reply, converted);
    QCOMPARE(converted.error.errorCode, 3);
    QCOMPARE(converted.error.errorMsgZh, QStringLiteral("账号已过期"));
    QCOMPARE(converted.domain, QStringLiteral("corp"));
    QCOMPARE(converted.poolList.size(), 1);
}

void TestDesktops::vmDetailsKeepLowBits()
{
    client::VmDetailInfoResp reply;
    reply.set_memsize(4294967296LL + 2048);
    reply.set_cpusize(4);
    reply.set_memrate("35%");
    reply.set_cpurate("12%");
    vditest::LogCapture log;
    tagQueryVmInfoResp converted;
    H::fromVmInfoResp(reply, converted);
    QCOMPARE(converted.memSize, 2048);
    QCOMPARE(converted.cpuSize, 4);
    QCOMPARE(converted.memRate, QStringLiteral("35%"));
    QVERIFY(log.contains(QStringLiteral(" reply:"), QtDebugMsg));
    QVERIFY(log.contains(QStringLiteral("12%"), QtDebugMsg));
}

void TestDesktops::applyForVMReplyFieldMap()
{
    client::ApplyForVmResp reply;
    QStringList filled = fillEverything(reply);
    for (const char* ip : {"10.0.0.1", "10.0.0.2"})
        reply.add_host_ips(ip);
    for (const char* group : {"staff", "lab", "night"})
        reply.add_grouplist(group);
    filled << QStringLiteral("host_ips") << QStringLiteral("grouplist");

    using R = tagApplyForVMReply;
    std::vector<Member<R>> table{
        MEMBER(R, vmInfo.vmId, "vm.vm_id"),  // the desktop itself: grpc2VMInfo, tested above
        MEMBER(R, vmInfo.vmUuid, "vm.vmUuid"),
        MEMBER(R, vmInfo.vmName, "vm.vm_name"),
        MEMBER(R, name, "name"),
        MEMBER(R, password, "password"),
        MEMBER(R, hostIp, "host_ip"),
        MEMBER(R, hostIps, "host_ips"),
        MEMBER(R, spicePassword, "spice_password"),
        MEMBER(R, userGroup, "user_group"),
        MEMBER(R, userNameOrDeviceName, "userNameOrDeviceName"),
        MEMBER(R, grouplist, "grouplist"),
        // Echoed from the request by the handler, or the application's own.
        UNTOUCHED(R, reservedNumber),
        UNTOUCHED(R, reservedText),
        UNTOUCHED(R, id),
        UNTOUCHED(R, port),
        UNTOUCHED(R, startDomain),
    };
    addError(table);
    addUntouchedNode(table);
    R converted;
    H::fromApplyForVMResp(reply, converted);
    const QStringList mismatches = memberMismatches(table, converted, reply, filled, {}, QStringLiteral("vm."));
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
}

void TestDesktops::operateForVMReplyFieldMap()
{
    client::OperateForVmResp reply;
    const QStringList filled = fillEverything(reply);
    using R = tagOperateForVMReply;
    std::vector<Member<R>> table{
        MEMBER(R, spicePort, "spice_port"),
        MEMBER(R, hostIp, "hostIp"),
        MEMBER(R, gatewayToken, "gatewayToken"),
        MEMBER(R, tlsPort, "tlsPort"),
        UNTOUCHED(R, opType),  // echoed by the handler
    };
    addPart(table, kVMInfoMembers, QStringLiteral("vmInfo."), QStringLiteral("vm."),
            [](const R& record) -> const tagVMInfo& { return record.vmInfo; });
    addError(table);
    addUntouchedNode(table);
    R converted;
    H::fromOperateForVMResq(reply, converted);
    // isUsedGateway has no member: its value must turn up nowhere.
    const QStringList mismatches =
        memberMismatches(table, converted, reply, filled, {QStringLiteral("isUsedGateway")});
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
}

void TestDesktops::recoverVMReplyFieldMap()
{
    client::RecoverVmResp reply;
    const QStringList filled = fillEverything(reply);
    reply.set_vm_id(5000000000LL + reply.vm_id());  // beyond 32 bits
    using R = tagRecoverVMReply;
    std::vector<Member<R>> table{
        MEMBER(R, vmId, "vm_id"),
        MEMBER(R, progress, "progress"),
        MEMBER(R, vmUuid, "vmUuid"),
    };
    addError(table);
    addUntouchedNode(table);
    R converted;
    H::fromRecoverVMResq(reply, converted);
    const QStringList mismatches = memberMismatches(table, converted, reply, filled);
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
}

void TestDesktops::snapshotReplyKeepsOrder()
{
    client::SnapshotResp reply;
    const QStringList filled = fillEverything(reply);
    for (const char* name : {"before-update", "after-update", "monday"}) {
        client::SnapshotInfo* snapshot = reply.add_snapshot_list();
        snapshot->set_name(name);
        snapshot->set_description(std::string("taken ") + name);
    }
    using R = tagSnapshotReply;
    std::vector<Member<R>> table{UNTOUCHED(R, vmId)};  // the handler's
    addError(table);
    addUntouchedNode(table);
    R converted;
    H::fromSnapshotResq(reply, converted);
    const QStringList mismatches = memberMismatches(table, converted, reply, filled);
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));

    QCOMPARE(converted.snapshotList.size(), reply.snapshot_list_size());
    for (int i = 0; i < reply.snapshot_list_size(); ++i) {
        QCOMPARE(converted.snapshotList.at(i).name, QString::fromStdString(reply.snapshot_list(i).name()));
        QCOMPARE(converted.snapshotList.at(i).description,
                 QString::fromStdString(reply.snapshot_list(i).description()));
    }
}

void TestDesktops::deviceInfoReplyKeepsOrder()
{
    client::ApplyForDeviceInfoResp reply;
    const QStringList filled = fillEverything(reply);
    for (int i = 0; i < 3; ++i) {
        client::Device* device = reply.add_device_list();
        device->set_device_id("dev-" + std::to_string(i));
        device->mutable_vm_address()->set_mac("52:54:00:00:00:0" + std::to_string(i));
        device->mutable_vm_address()->add_ip_list(" 10.0." + std::to_string(i) + ".1 ");  // trimmed
        device->mutable_vm_address()->add_ip_list("");                                     // dropped
        device->mutable_vm_address()->add_ip_list("10.0." + std::to_string(i) + ".2");
    }
    using R = tagApplyForDeviceInfoReply;
    std::vector<Member<R>> table;
    addError(table);
    addUntouchedNode(table);
    R converted;
    H::fromApplyForDeviceInfoResq(reply, converted);
    const QStringList mismatches = memberMismatches(table, converted, reply, filled);
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));

    QCOMPARE(converted.deviceList.size(), reply.device_list_size());
    for (int i = 0; i < reply.device_list_size(); ++i) {
        const client::Device& device = reply.device_list(i);
        QCOMPARE(converted.deviceList.at(i).deviceId, QString::fromStdString(device.device_id()));
        QCOMPARE(converted.deviceList.at(i).address.mac, QString::fromStdString(device.vm_address().mac()));
        QCOMPARE(converted.deviceList.at(i).address.ipList,
                 (QList<QString>{QStringLiteral("10.0.%1.1").arg(i), QStringLiteral("10.0.%1.2").arg(i)}));
    }
}

void TestDesktops::deskTopPoolReplyFieldMap()
{
    client::DeskTopPoolResp reply;
    const QStringList filled = fillEverything(reply);
    using R = tagDeskTopPoolReply;
    std::vector<Member<R>> table{
        MEMBER(R, pool.id, "pool.id"),
        MEMBER(R, pool.type, "pool.type"),
        MEMBER(R, pool.name, "pool.name"),
        MEMBER(R, pool.status, "pool.status"),
        MEMBER(R, pool.templetId, "pool.templetId"),
        MEMBER(R, pool.offlineDate, "pool.offlineDate"),
        MEMBER(R, pool.recoverMode, "pool.recoverMode"),
        MEMBER(R, pool.vmOsType, "pool.vm_os_type"),
        MEMBER(R, pool.vmOsVersion, "pool.vm_os_version"),
        MEMBER(R, pool.computerType, "pool.computer_type"),
        MEMBER(R, pool.poolExpireTime, "pool.pool_expire_time"),  // a plain time: coded as it stands
        MEMBER(R, pool.serverAddress, "pool.server_address"),
        MEMBER(R, pool.serverPort, "pool.server_port"),
        MEMBER(R, pool.gatewayAccessStrategy, "pool.gateway_access_strategy"),
        MEMBER(R, pool.resourceName, "pool.resource_name"),
        UNTOUCHED(R, pool.reservedNumber),
        UNTOUCHED(R, pool.reservedText),
        UNTOUCHED(R, pool.isExPool),
    };
    addPart(table, asMembers(kVMOperatorFields), QStringLiteral("pool."), QStringLiteral("pool.extend_op."),
            [](const R& record) -> const tagVMOperator& { return record.pool; });
    addError(table);
    R converted;
    H::fromDeskTopPoolResq(reply, converted);
    const QStringList dropped{
        QStringLiteral("pool.authDevice."), QStringLiteral("pool.imageUuid"),   QStringLiteral("pool.accessAccount"),
        QStringLiteral("pool.accessPassword"), QStringLiteral("mac"),           QStringLiteral("idvUsbPolicy."),
        QStringLiteral("computerName"),      QStringLiteral("vmAutoLogin"),     QStringLiteral("recoverUuid"),
        QStringLiteral("createRestorePoint"), QStringLiteral("pwdOption"),      QStringLiteral("fixedPwd"),
    };
    const QStringList mismatches = memberMismatches(table, converted, reply, filled, dropped);
    QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join('\n')));
}

VDI_TEST_MAIN(TestDesktops)
#include "tst_desktops.moc"
