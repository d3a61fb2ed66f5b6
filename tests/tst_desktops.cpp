// Conversion of the login reply and of desktops.
#include "testsupport.h"

#include "vdidesktopgrpchelper.h"

using H = VdiDesktopGrpcHelper;

class TestDesktops : public QObject
{
    Q_OBJECT
private slots:
    void expiryCoding_data();
    void expiryCoding();
    void addresses();
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
