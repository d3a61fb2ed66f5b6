// The conversions that every family shares: error words, texts, the identity, and the desktops
// and pools that the login, the operations and the applications carry.
#include "testsupport.h"
#include "fieldmap.h"

#include "vdidesktopgrpchelper.h"

using H = VdiDesktopGrpcHelper;

class TestConversions : public QObject
{
    Q_OBJECT
private slots:
    void toErrorData_data();
    void toErrorData();
    void toStdString_data();
    void toStdString();
    void fieldMaps_data();
    void fieldMaps() { VDI_RUN_CHECK(); }
    void identityDefaults();
    void gatewayIdentityHasNoPlaceForThree();
    void expiryCoding_data();
    void expiryCoding();
    void addressesCleaned();
    void absentGroupsGiveZeros();
};

void TestConversions::toErrorData_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("zh");
    QTest::newRow("do-not-use") << -1 << QStringLiteral("强制用户包括默认分支。");
    QTest::newRow("ok") << 0 << QStringLiteral("before");
    QTest::newRow("cancelled") << 1 << QStringLiteral("操作被取消。");
    QTest::newRow("deadline") << 4
                              << QStringLiteral("通信请求超时，认证失败，请检查服务器地址或网络相关设置。");
    QTest::newRow("unavailable") << 14 << QStringLiteral("服务器连接失败，请检查网络等相关配置或联系管理员。");
    QTest::newRow("unauthenticated") << 16 << QStringLiteral("该操作请求没有有效的身份验证凭据。");
    QTest::newRow("above-table") << 17 << QStringLiteral("before");
    QTest::newRow("below-table") << -2 << QStringLiteral("before");
    // Within what grpc::StatusCode can hold (its enumerators span -1 to 16, so its values -32 to
    // 31): a value beyond that would be undefined behaviour.
    QTest::newRow("far past the table") << 31 << QStringLiteral("before");
}

void TestConversions::toErrorData()
{
    QFETCH(int, code);
    QFETCH(QString, zh);
    tagErrorData data;
    data.errorMsgZh = QStringLiteral("before");
    H::toErrorData(grpc::Status(grpc::StatusCode(code), "transport says \xE4\xBD\xA0"), data);
    QCOMPARE(data.errorCode, code);
    QCOMPARE(data.errorMsgZh, zh);
    // The English text is the transport's own message, even for OK.
    QCOMPARE(data.errorMsgEn, QStringLiteral("transport says 你"));
}

void TestConversions::toStdString_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("null") << QString();
    QTest::newRow("empty") << QStringLiteral("");
    QTest::newRow("ascii") << QStringLiteral("zhangsan-thinclient 4.5.2");
    QTest::newRow("embedded nul") << QString::fromUtf16(u"a\0b", 3);
    QTest::newRow("chinese after ascii") << QStringLiteral("desk 张三");
    QTest::newRow("latin-1 only") << QStringLiteral("caf\u00e9");
    QTest::newRow("surrogate pair") << QString::fromUtf16(u"x\U0001F600");
}

// Every text goes out as its UTF-8 bytes, the ASCII fast way or not.
void TestConversions::toStdString()
{
    QFETCH(QString, text);
    const std::string bytes = H::toStdString(text);
    QCOMPARE(QByteArray::fromStdString(bytes), text.toUtf8());
    QCOMPARE(H::fromStdString(bytes), text);
}

void TestConversions::fieldMaps_data()
{
    using namespace vditest;
    QTest::addColumn<Check>("check");
    requestRow<tagBaseInfo, client::ClientBaseInfo>("identity", &H::baseInfo2Grpc, identityMap());
    requestRow<tagBaseInfo, gateway::ClientBaseInfo>("gateway identity", &H::baseInfo2Grpc,
                                                     without(identityMap(), {"vmUuid", "isOpenldap", "ticket"}));
    requestRow<tagExtendInfo, client::ClientExtendInfo>("extend info", &H::extendInfo2Grpc, extendMap());
    requestRow<tagExtendInfo, gateway::ClientExtendInfo>(
        "gateway extend info", &H::extendInfo2Grpc, without(extendMap(), {"computerType", "cpuArch", "pineletVersion"}));
    replyRow("allowed actions", &H::grpc2VMOperator, vmOperatorMap());
    replyRow("operation's desktop", &H::grpc2VMInfo, vmInfoMap());
    replyRow("pool", &H::grpc2PoolInfo, poolMap(), {"authDevice.", "imageUuid", "accessAccount", "accessPassword"});
}

void TestConversions::identityDefaults()
{
    client::ClientBaseInfo defaults;
    H::baseInfo2Grpc(tagBaseInfo(), defaults);
    QCOMPARE(vditest::wireMismatch(defaults, "vm_id: -1 computer_type: -1 name: '' password: ''"), QString());
}

void TestConversions::gatewayIdentityHasNoPlaceForThree()
{
    // vmUuid, isOpenldap and ticket may not leak into the gateway message's unknown fields.
    tagBaseInfo info;
    info.vmUuid = QStringLiteral("uuid-1");
    info.isOpenldap = 1;
    info.ticket = QStringLiteral("ticket-1");
    gateway::ClientBaseInfo message;
    H::baseInfo2Grpc(info, message);
    QVERIFY(message.GetReflection()->GetUnknownFields(message).empty());
    QCOMPARE(message.GetDescriptor()->field_count(), 14);
}

void TestConversions::expiryCoding_data()
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

void TestConversions::expiryCoding()
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

void TestConversions::addressesCleaned()
{
    // Trimmed, and dropped when empty, in address lists; a VmInfo's own ip_list stays as it is.
    client::VmInfo vm;
    client::VmAddress* address = vm.add_address_list();
    for (const char* ip : {" 10.0.0.1 ", "", "  "}) {
        address->add_ip_list(ip);
        vm.add_ip_list(ip);
    }
    tagVMInfo info;
    H::grpc2VMInfo(vm, info);
    QCOMPARE(info.ipList, (QList<QString>{QStringLiteral(" 10.0.0.1 "), QString(), QStringLiteral("  ")}));
    QCOMPARE(info.addressList.at(0).ipList, QList<QString>{QStringLiteral("10.0.0.1")});
}

// Absent groups give zeros and empty texts, not the records' defaults.
void TestConversions::absentGroupsGiveZeros()
{
    client::PoolInfo pool;
    pool.add_vm_list()->set_vm_name("no-ops");
    tagPoolInfo converted;
    H::grpc2PoolInfo(pool, converted);
    QCOMPARE(tagVMOperator().disconnection, 1);
    QCOMPARE(converted.vmList.at(0).vmOperator.disconnection, 0);
    QCOMPARE(converted.disconnection, 0);
    QCOMPARE(converted.gatewayAccessStrategy, QStringLiteral("0"));

    client::VmInfo watermarked;
    watermarked.mutable_control_policy()->mutable_watermark_policy()->set_font_size(16);
    tagVMInfo info;
    H::grpc2VMInfo(watermarked, info);
    QCOMPARE(tagControlPolicy().color, QStringLiteral("000000"));
    QCOMPARE(info.controlPolicy.color, QString());
    QCOMPARE(info.controlPolicy.userDefine, QString());
    QCOMPARE(info.controlPolicy.fontSize, 16);
    QCOMPARE(info.controlPolicy.transparent, 0);
    QCOMPARE(info.controlPolicy.showPosition, 0);

    tagErrorData fromAbsent;
    H::grpc2ErrorData(client::DeviceConfigInfoResp().error(), fromAbsent);
    QCOMPARE(fromAbsent.errorCode, 0);  // success, where the record's own default is -1
}

VDI_TEST_MAIN(TestConversions)
#include "tst_conversions.moc"
