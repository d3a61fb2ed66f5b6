// Error words and identity conversions.
#include "testsupport.h"

#include "vdidesktopgrpchelper.h"

class TestConversions : public QObject
{
    Q_OBJECT
private slots:
    void toErrorData_data();
    void toErrorData();
    void toErrorDataKeepsTextOutsideTable();
    void grpc2ErrorData();
    void fromStdStringKeepsEmbeddedNul();
    void toStdString_data();
    void toStdString();
    void clientBaseInfo();
    void gatewayBaseInfo();
    void extendInfo();
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
}

void TestConversions::toErrorData()
{
    QFETCH(int, code);
    QFETCH(QString, zh);
    tagErrorData data;
    data.errorMsgZh = QStringLiteral("before");
    VdiDesktopGrpcHelper::toErrorData(grpc::Status(grpc::StatusCode(code), "transport says \xE4\xBD\xA0"), data);
    QCOMPARE(data.errorCode, code);
    QCOMPARE(data.errorMsgZh, zh);
    // The English text is the transport's own message, even for OK.
    QCOMPARE(data.errorMsgEn, QStringLiteral("transport says 你"));
}

void TestConversions::toErrorDataKeepsTextOutsideTable()
{
    // A record nobody filled keeps its empty text for codes without an entry.
    tagErrorData data;
    VdiDesktopGrpcHelper::toErrorData(grpc::Status(grpc::StatusCode(42), ""), data);
    QCOMPARE(data.errorCode, 42);
    QVERIFY(data.errorMsgZh.isEmpty());
    QVERIFY(data.errorMsgEn.isEmpty());
}

void TestConversions::grpc2ErrorData()
{
    // The server's code 4 keeps the server's own words: no table applies.
    common::ErrorData error;
    error.set_error_code(4);
    error.set_error_msg_zh("服务器忙");
    error.set_error_msg_en("busy");
    tagErrorData data;
    VdiDesktopGrpcHelper::grpc2ErrorData(error, data);
    QCOMPARE(data.errorCode, 4);
    QCOMPARE(data.errorMsgZh, QStringLiteral("服务器忙"));
    QCOMPARE(data.errorMsgEn, QStringLiteral("busy"));

    // A reply without an error block reads as success.
    client::DeviceConfigInfoResp reply;
    QVERIFY(!reply.has_error());
    tagErrorData fromAbsent;
    VdiDesktopGrpcHelper::grpc2ErrorData(reply.error(), fromAbsent);
    QCOMPARE(fromAbsent.errorCode, 0);
    QVERIFY(fromAbsent.errorMsgZh.isEmpty());
    QVERIFY(fromAbsent.errorMsgEn.isEmpty());
}

void TestConversions::fromStdStringKeepsEmbeddedNul()
{
    const std::string text("ab\0c\xE4\xB8\xAD", 7);
    const QString converted = VdiDesktopGrpcHelper::fromStdString(text);
    QCOMPARE(converted.size(), 5);
    QCOMPARE(converted.at(2), QChar(0));
    QCOMPARE(converted.mid(3), QStringLiteral("c中"));
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
    const std::string bytes = VdiDesktopGrpcHelper::toStdString(text);
    QCOMPARE(QByteArray::fromStdString(bytes), text.toUtf8());
    QCOMPARE(VdiDesktopGrpcHelper::fromStdString(bytes), text);
}

static tagBaseInfo filledBaseInfo()
{
    tagBaseInfo info;
    info.ip = QStringLiteral("10.1.2.3");
    info.mac = QStringLiteral("aa:bb:cc:dd:ee:ff");
    info.vmId = 5000000000LL;
    info.domain = QStringLiteral("corp");
    info.smsCode = QStringLiteral("1234");
    info.name = QStringLiteral("张三");
    info.authType = QString::number(VdiGrpc::LoginByLdap);
    info.deviceId = QStringLiteral("dev-1");
    info.deviceName = QStringLiteral("terminal");
    info.clientType = QStringLiteral("7");
    info.refreshFlag = QStringLiteral("0");
    info.protocolType = QStringLiteral("vdp");
    info.password = QStringLiteral("secret");
    info.computerType = 3;
    info.vmUuid = QStringLiteral("uuid-1");
    info.isOpenldap = 1;
    info.ticket = QStringLiteral("ticket-1");
    return info;
}

void TestConversions::clientBaseInfo()
{
    client::ClientBaseInfo message;
    VdiDesktopGrpcHelper::baseInfo2Grpc(filledBaseInfo(), message);
    QCOMPARE(message.ip(), std::string("10.1.2.3"));
    QCOMPARE(message.mac(), std::string("aa:bb:cc:dd:ee:ff"));
    QCOMPARE(message.vm_id(), int64_t(5000000000LL));
    QCOMPARE(message.domain(), std::string("corp"));
    QCOMPARE(message.sms_code(), std::string("1234"));
    QCOMPARE(QString::fromStdString(message.name()), QStringLiteral("张三"));
    QCOMPARE(message.auth_type(), std::string("3"));
    QCOMPARE(message.device_id(), std::string("dev-1"));
    QCOMPARE(message.device_name(), std::string("terminal"));
    QCOMPARE(message.client_type(), std::string("7"));
    QCOMPARE(message.refresh_flag(), std::string("0"));
    QCOMPARE(message.protocol_type(), std::string("vdp"));
    QCOMPARE(message.password(), std::string("secret"));
    QCOMPARE(message.computer_type(), 3);
    QCOMPARE(message.vmuuid(), std::string("uuid-1"));
    QCOMPARE(message.isopenldap(), 1);
    QCOMPARE(message.ticket(), std::string("ticket-1"));
    // Never set by the library.
    QVERIFY(message.h5_clientuuid().empty());
    QCOMPARE(message.connect_type(), 0);
    QCOMPARE(message.ssologin(), 0);
    QVERIFY(message.encryptpassword().empty());
    QVERIFY(message.spmid().empty());

    // Defaults go out as they stand.
    client::ClientBaseInfo defaults;
    VdiDesktopGrpcHelper::baseInfo2Grpc(tagBaseInfo(), defaults);
    QCOMPARE(defaults.vm_id(), int64_t(-1));
    QCOMPARE(defaults.computer_type(), -1);
}

void TestConversions::gatewayBaseInfo()
{
    gateway::ClientBaseInfo message;
    VdiDesktopGrpcHelper::baseInfo2Grpc(filledBaseInfo(), message);
    QCOMPARE(QString::fromStdString(message.name()), QStringLiteral("张三"));
    QCOMPARE(message.password(), std::string("secret"));
    QCOMPARE(message.vm_id(), int64_t(5000000000LL));
    QCOMPARE(message.protocol_type(), std::string("vdp"));
    QCOMPARE(message.computer_type(), 3);
    // The gateway's message has no place for vmUuid, isOpenldap and ticket: nothing of them
    // may leak into the unknown-field set either.
    QVERIFY(message.GetReflection()->GetUnknownFields(message).empty());
    QCOMPARE(message.GetDescriptor()->field_count(), 14);
}

void TestConversions::extendInfo()
{
    tagExtendInfo info;
    info.model = QStringLiteral("T100");
    info.vendor = QStringLiteral("maker");
    info.osType = QStringLiteral("linux");
    info.osVersion = QStringLiteral("12");
    info.computerType = 2;
    info.clientVersion = QStringLiteral("1.2.3");
    info.clientLanguage = QStringLiteral("zh_CN");
    info.cpuArch = QStringLiteral("arm");
    info.pineletVersion = QStringLiteral("9.9");

    client::ClientExtendInfo message;
    VdiDesktopGrpcHelper::extendInfo2Grpc(info, message);
    QCOMPARE(message.model(), std::string("T100"));
    QCOMPARE(message.vendor(), std::string("maker"));
    QCOMPARE(message.os_type(), std::string("linux"));
    QCOMPARE(message.os_version(), std::string("12"));
    QCOMPARE(message.computer_type(), 2);
    QCOMPARE(message.client_version(), std::string("1.2.3"));
    QCOMPARE(message.client_language(), std::string("zh_CN"));
    QCOMPARE(message.cpu_arch(), std::string("arm"));
    QCOMPARE(message.pinelet_version(), std::string("9.9"));
    QCOMPARE(message.classroom_id(), int64_t(0));
    QCOMPARE(message.forcelogin(), false);
    QCOMPARE(message.classroom_num(), 0);
    QCOMPARE(message.scene(), 0);

    gateway::ClientExtendInfo gatewayMessage;
    VdiDesktopGrpcHelper::extendInfo2Grpc(info, gatewayMessage);
    QCOMPARE(gatewayMessage.client_language(), std::string("zh_CN"));
    QCOMPARE(gatewayMessage.client_version(), std::string("1.2.3"));
    QCOMPARE(gatewayMessage.vendor(), std::string("maker"));
    QCOMPARE(gatewayMessage.model(), std::string("T100"));
    QCOMPARE(gatewayMessage.os_type(), std::string("linux"));
    QCOMPARE(gatewayMessage.os_version(), std::string("12"));
    QVERIFY(gatewayMessage.device_type().empty());
}

VDI_TEST_MAIN(TestConversions)
#include "tst_conversions.moc"
