// Passwords out of the log. By default a key and the 29 characters behind it are cut out of a
// request text; strictly, every secret field of every logged request and reply is masked.
#include "testsupport.h"

#include <google/protobuf/text_format.h>

namespace {
const std::string kApply = "/client.ClientCore/ApplyForVm";

std::unique_ptr<google::protobuf::Message> parsed(const QString& type, const QString& text)
{
    const auto* descriptor = google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName(type.toStdString());
    if (!descriptor)
        return nullptr;
    std::unique_ptr<google::protobuf::Message> message(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(descriptor)->New());
    return google::protobuf::TextFormat::ParseFromString(text.toStdString(), message.get()) ? std::move(message) : nullptr;
}
} // namespace

class TestRedaction : public QObject
{
    Q_OBJECT
private slots:
    void redaction_data();
    void redaction();
    void singleKey();
    void strictMasks_data();
    void strictMasks();
    void strictFacade();
};

void TestRedaction::redaction_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    QTest::newRow("no password") << QStringLiteral("name: \"bob\"\n") << QStringLiteral("name: \"bob\"\n");
    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("upper case untouched") << QStringLiteral("PASSWORD: \"x\"\nencryptPassword: \"y\"\n")
                                          << QStringLiteral("PASSWORD: \"x\"\nencryptPassword: \"y\"\n");
    // `: "` and 26 characters of the value go; the tail of a longer value stays.
    QTest::newRow("long value cut at 29")
        << QStringLiteral("password: \"abcdefghijklmnopqrstuvwxyz0123456789\"\n")
        << QStringLiteral("0123456789\"\n");
    // A short value takes the start of the next field with it.
    QTest::newRow("next field partly eaten")
        << QStringLiteral("name: \"u\"\npassword: \"abc\"\ndomain: \"corp.example.com\"\n")
        << QStringLiteral("name: \"u\"\n.com\"\n");
    QTest::newRow("text ends before 29") << QStringLiteral("ip: \"1\"\npassword: \"p\"\n") << QStringLiteral("ip: \"1\"\n");
    QTest::newRow("two passwords")
        << QStringLiteral("password: \"x\"\nname: \"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\"\npassword: \"y\"\nuser: \"zzzzzzzzzzzzzzzzzzzzzzzzzzzzzz\"\n")
        << QStringLiteral("aaaaaaaaaaaaaa\"\nzzzzzzzzzzzzzz\"\n");
    // The first key matches inside the second and leaves "spice_"; the second finds nothing.
    QTest::newRow("spice password")
        << QStringLiteral("spice_password: \"0123456789abcdefghijklmnopqrstuvwxyz\"\n")
        << QStringLiteral("spice_qrstuvwxyz\"\n");
    QTest::newRow("field names containing the key")
        << QStringLiteral("password_new: \"0123456789abcdefghijklmnopqrstuvwxyz\"\n")
        << QStringLiteral("mnopqrstuvwxyz\"\n");
    // The search resumes key-length characters behind the cut: a key that starts there stays.
    QTest::newRow("resume position")
        << QStringLiteral("password") + QString(29, QLatin1Char('x')) + QStringLiteral("password") + QString(29, QLatin1Char('y'))
        << QStringLiteral("password") + QString(29, QLatin1Char('y'));
}

void TestRedaction::redaction()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    VdiDesktopGrpcWorker worker;
    QString redacted = text;
    worker.printInfoWithoutKeyList(redacted);
    QCOMPARE(redacted, expected);
    QCOMPARE(worker.debugInfoWithoutKeyList(text), expected);
}

void TestRedaction::singleKey()
{
    QString text = QStringLiteral("spice_password: \"s\"\n") + QString(40, QLatin1Char('-'));
    QString key = QStringLiteral("spice_password");
    VdiDesktopGrpcWorker().printInfoWithoutKeyValue(text, key);
    QCOMPARE(text, QString(17, QLatin1Char('-')));  // 14 + 29 characters went, 20 of them before the dashes
}

void TestRedaction::strictMasks_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("masked");  // '@' stands for the mask
    const QString longer = QString(300, QLatin1Char('p'));
    QTest::newRow("nested, any length") << "client.LoginReq"
                                        << "client_base_info { name: 'u' password: '" + longer
                                               + "' encryptPassword: 'b' domain: 'd' }"
                                        << "client_base_info { name: 'u' password: '@' encryptPassword: '@' domain: 'd' }";
    QTest::newRow("old and new") << "client.ModifyPasswordReq"
                                 << "client_base_info { password: 'o' vmUuid: 'v' } password_new: 'n'"
                                 << "client_base_info { password: '@' vmUuid: 'v' } password_new: '@'";
    QTest::newRow("a desktop's connection data")
        << "client.ApplyForVmResp" << "name: 'u' password: 'p' spice_password: 's' host_ips: 'a' host_ips: 'b'"
        << "name: 'u' password: '@' spice_password: '@' host_ips: 'a' host_ips: 'b'";
    QTest::newRow("list entries") << "client.LoginResp"
                                  << "pool_list { name: 'a' accessPassword: 'x' } pool_list { accessPassword: 'y' }"
                                  << "pool_list { name: 'a' accessPassword: '@' } pool_list { accessPassword: '@' }";
    QTest::newRow("pwd, numbers stay") << "client.DeskTopPoolResp" << "pwdOption: 3 fixedPwd: 'f'"
                                       << "pwdOption: 3 fixedPwd: '@'";
    QTest::newRow("token") << "gateway.LoginGatewayResp" << "domain: 'd' gw_access_token: 't' token_due_date: 9"
                           << "domain: 'd' gw_access_token: '@' token_due_date: 9";
    QTest::newRow("flag stays") << "client.DeviceConfigInfoResp" << "rememberPassword: true"
                                << "rememberPassword: true";
}

void TestRedaction::strictMasks()
{
    QFETCH(QString, type);
    QFETCH(QString, text);
    QFETCH(QString, masked);
    const auto message = parsed(type, text);
    const auto expected = parsed(type, masked.replace('@', VdiDesktopGrpcWorker::kSecretMask));
    QVERIFY(message && expected);
    QCOMPARE(VdiDesktopGrpcWorker::maskedDebugString(*message), QString::fromStdString(expected->DebugString()));
}

// Two equal sessions, the second switched to strict once connected: the same lines at the same
// levels, and none of the secrets that the first one leaves in the log.
void TestRedaction::strictFacade()
{
    // Each far beyond the 26 characters that the default cut takes whole: their tails show.
    const QString password = QStringLiteral("pw-") + QString(40, QLatin1Char('w'));
    const QString account = QStringLiteral("desktop-secret-") + QString(30, QLatin1Char('d'));
    const QString spice = QStringLiteral("spice-secret-") + QString(30, QLatin1Char('s'));
    vditest::TestServer server;
    client::ApplyForVmResp desktop;
    desktop.set_password(account.toStdString());
    desktop.set_spice_password(spice.toStdString());
    server->setReply(kApply, desktop);
    const auto session = [&](bool strict) {
        vditest::LogCapture log;
        VdiDesktopGrpcThread facade;
        server.connect(facade);
        facade.setStrictRedaction(strict);
        QSignalSpy logins(&facade, &VdiDesktopGrpcThread::loginResult);
        QSignalSpy applied(&facade, &VdiDesktopGrpcThread::applyForVMResult);
        facade.checkAndSaveLdapPasswd(QStringLiteral("ldap-user"), password, QStringLiteral("D"));
        logins.wait(5000);
        facade.applyForVM(tagVmNodeInfo(), QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("uuid"),
                          QStringLiteral("pool"), QStringLiteral("3389"), 0);
        applied.wait(5000);
        const auto lines = log.lines();
        facade.stop();
        return lines;
    };
    const auto plain = session(false);
    const auto strict = session(true);
    // Each line as its level and start, sorted: the two threads interleave differently each run.
    const auto heads = [](const QList<QPair<QtMsgType, QString>>& lines, QStringList* texts) {
        QStringList heads;
        for (const auto& line : lines) {
            heads << QString::number(line.first) + line.second.section(QLatin1Char('\n'), 0, 0).section(QLatin1Char('"'), 0, 0);
            *texts << line.second;
        }
        heads.sort();
        return heads;
    };
    QStringList plainText, strictText;
    QCOMPARE(heads(strict, &strictText), heads(plain, &plainText));
    const QString mask = QLatin1String(VdiDesktopGrpcWorker::kSecretMask);
    QCOMPARE(strictText.filter(QStringLiteral("checkAndSaveLdapPasswd \"ldap-user\" , \"%1\"").arg(mask)).size(), 1);
    for (const QString& secret : {password.right(14), account.right(14), spice.right(14)}) {
        QVERIFY2(plainText.join('\n').contains(secret), qPrintable(secret));
        QVERIFY2(!strictText.join('\n').contains(secret), qPrintable(strictText.join('\n')));
    }
    QVERIFY(strictText.filter(mask).size() >= 4);  // the LDAP line, both requests and the desktop's reply
}

VDI_TEST_MAIN(TestRedaction)
#include "tst_redaction.moc"
