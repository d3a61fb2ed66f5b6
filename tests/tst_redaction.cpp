// Passwords cut out of logged request texts: a key and the 29 characters behind it.
#include "testsupport.h"

class TestRedaction : public QObject
{
    Q_OBJECT
private slots:
    void redaction_data();
    void redaction();
    void singleKey();
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

VDI_TEST_MAIN(TestRedaction)
#include "tst_redaction.moc"
