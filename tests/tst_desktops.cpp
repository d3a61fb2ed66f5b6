// Conversion of the login reply and of desktops.
#include "testsupport.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include "vdidesktopgrpchelper.h"

using H = VdiDesktopGrpcHelper;

namespace {
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

// Gives every singular number and text of the message and of its sub-messages a value of its
// own, numbers counting up from `next`, and returns the paths of the numbers set
// ("share_policy.rdp_clipboard"). Repeated fields are left empty.
QStringList fillDistinct(Message& message, int& next, const QString& prefix = QString())
{
    QStringList paths;
    const google::protobuf::Descriptor* descriptor = message.GetDescriptor();
    const google::protobuf::Reflection* reflection = message.GetReflection();
    for (int i = 0; i < descriptor->field_count(); ++i) {
        const FieldDescriptor* field = descriptor->field(i);
        const QString path = prefix + QString::fromStdString(field->name());
        if (field->is_repeated())
            continue;
        switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            reflection->SetInt32(&message, field, next++);
            paths << path;
            break;
        case FieldDescriptor::CPPTYPE_INT64:
            reflection->SetInt64(&message, field, next++);
            paths << path;
            break;
        case FieldDescriptor::CPPTYPE_STRING:
            reflection->SetString(&message, field, "text " + std::to_string(next++));
            break;
        case FieldDescriptor::CPPTYPE_MESSAGE:
            paths << fillDistinct(*reflection->MutableMessage(&message, field), next, path + QLatin1Char('.'));
            break;
        default:
            break;
        }
    }
    return paths;
}

// The number at a path that fillDistinct returned; -1 for a path that is not there.
qint64 wireNumber(const Message& message, const QString& path)
{
    const Message* current = &message;
    const QStringList names = path.split(QLatin1Char('.'));
    for (int i = 0; i < names.size(); ++i) {
        const FieldDescriptor* field = current->GetDescriptor()->FindFieldByName(names[i].toStdString());
        if (!field)
            return -1;
        const google::protobuf::Reflection* reflection = current->GetReflection();
        if (i + 1 < names.size()) {
            current = &reflection->GetMessage(*current, field);
            continue;
        }
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_INT32)
            return reflection->GetInt32(*current, field);
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_INT64)
            return reflection->GetInt64(*current, field);
    }
    return -1;
}

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

VDI_TEST_MAIN(TestDesktops)
#include "tst_desktops.moc"
