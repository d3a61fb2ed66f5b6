// The example thin client's window on a real X display (Xvfb), driven through its widgets against
// the built-in deployment served in this process. Screenshots of each state are kept.
#include "testsupport.h"
#include "thinclientwindow.h"

#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeWidget>

namespace {

template <class W>
W* child(QWidget& window, const char* name)
{
    return window.findChild<W*>(QLatin1String(name));
}

// Shows the window, fills in the server, demo-user and the password, and clicks "Log in".
bool logIn(ThinClientWindow& window, const vdifake::ScenarioServer& served, const QString& password)
{
    window.show();
    if (!QTest::qWaitForWindowExposed(&window))
        return false;
    child<QLineEdit>(window, "port")->setText(QString::number(served.port()));
    child<QLineEdit>(window, "pem")->setText(served.pemPath());
    child<QLineEdit>(window, "user")->setText(QStringLiteral("demo-user"));
    child<QLineEdit>(window, "password")->clear();
    QTest::keyClicks(child<QLineEdit>(window, "password"), password);
    QTest::mouseClick(child<QPushButton>(window, "login"), Qt::LeftButton);
    return true;
}

void screenshot(QWidget& window, const char* name)
{
    QDir().mkpath(QStringLiteral(VDI_SCREENSHOTS));
    const QString path = QStringLiteral(VDI_SCREENSHOTS "/%1.png").arg(QLatin1String(name));
    QVERIFY(window.grab().save(path));
    qInfo("screenshot %s", qPrintable(path));
}

} // namespace

class TestThinClient : public QObject
{
    Q_OBJECT
private slots:
    void sessionFromLoginToHelp();
    void gatewayAsksForItsCredentials();
};

// A refused login is shown and can be tried again; then the desktops are listed, one is started,
// its connection data shown without a password, and shut down. While a help report runs (held 3 s
// by the server here) the window shows it as busy with the time it has taken, until the answer.
// The shell tools the library may run for the report are stand-ins first on PATH.
void TestThinClient::sessionFromLoginToHelp()
{
    const vditest::FakeTools fakes({{"w", QString()}, {"sudo", QString()}, {"dpkg", QString()}, {"chown", QString()}});
    QVERIFY(fakes.ready());
    const auto served = vditest::serveBuiltInDeployment(QStringLiteral("controller"));
    QVERIFY(served);
    served->withServer([](vdifake::FakeServer& server) { server.setDelay("/client.ClientCore/onekeyHelp", 3000); });
    ThinClientWindow window;
    auto* tree = child<QTreeWidget>(window, "desktops");
    QVERIFY(logIn(window, *served, QStringLiteral("wrong")));
    QTRY_VERIFY_WITH_TIMEOUT(child<QLabel>(window, "error")->text().contains(QStringLiteral("wrong user name or password")),
                             10000);
    QCOMPARE(tree->topLevelItemCount(), 0);
    QVERIFY(child<QPushButton>(window, "login")->isEnabled());
    screenshot(window, "thinclient-refused");

    QVERIFY(logIn(window, *served, QStringLiteral("demo-password")));
    QTRY_COMPARE_WITH_TIMEOUT(tree->topLevelItemCount(), 3, 10000);
    QVERIFY(child<QLabel>(window, "error")->text().isEmpty());
    QCOMPARE(tree->topLevelItem(0)->text(0), QStringLiteral("Office desktops"));
    const QList<QTreeWidgetItem*> found = tree->findItems(QStringLiteral("office-demo-user-2"), Qt::MatchRecursive);
    QCOMPARE(found.size(), 1);
    QTreeWidgetItem* desktop = found.first();
    QCOMPARE(desktop->text(1), QStringLiteral("shutdown"));
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>(window, "heartbeat")->text(), QStringLiteral("Heartbeat: answered"), 10000);
    screenshot(window, "thinclient-desktops");

    tree->setCurrentItem(desktop);
    QTest::mouseClick(child<QPushButton>(window, "start"), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(desktop->text(1), QStringLiteral("running"), 10000);

    QTest::mouseClick(child<QPushButton>(window, "apply"), Qt::LeftButton);
    auto* connection = child<QLabel>(window, "connection");
    QTRY_VERIFY_WITH_TIMEOUT(connection->text().startsWith(QStringLiteral("Connect to ")), 10000);
    QVERIFY2(connection->text().contains(QStringLiteral("port ")), qPrintable(connection->text()));
    // The reply carries the desktop's account and spice passwords (the simulator makes them
    // "Vdi-" and eight hex digits): no label or plain field shows them, nor the user's password.
    QStringList shown;
    for (QLabel* label : window.findChildren<QLabel*>())
        shown << label->text();
    for (QLineEdit* edit : window.findChildren<QLineEdit*>())
        shown << (edit->echoMode() == QLineEdit::Normal ? edit->text() : QString());
    QVERIFY2(!shown.join(QLatin1Char('\n')).contains(QStringLiteral("Vdi-")), qPrintable(shown.join(QLatin1Char('\n'))));
    QVERIFY(!shown.join(QLatin1Char('\n')).contains(QStringLiteral("demo-password")));
    QVERIFY(!connection->text().contains(QStringLiteral("password"), Qt::CaseInsensitive));
    screenshot(window, "thinclient-connection");

    QTest::mouseClick(child<QPushButton>(window, "shutdown"), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(desktop->text(1), QStringLiteral("shutdown"), 10000);

    QTest::keyClicks(child<QLineEdit>(window, "problem"), QStringLiteral("The desktop freezes"));
    auto* help = child<QPushButton>(window, "help");
    auto* busy = child<QProgressBar>(window, "helpBusy");
    auto* state = child<QLabel>(window, "helpState");
    QTest::mouseClick(help, Qt::LeftButton);
    QVERIFY(busy->isVisible() && !help->isEnabled());
    QTRY_COMPARE_WITH_TIMEOUT(state->text(), QStringLiteral("Sending the help report... 1 s"), 5000);
    screenshot(window, "thinclient-help-busy");
    QTRY_VERIFY_WITH_TIMEOUT(state->text().startsWith(QStringLiteral("Help report taken: task ")), 10000);
    QVERIFY(!busy->isVisible() && help->isEnabled());
    QCOMPARE(served->calls("/client.ClientCore/onekeyHelp").size(), size_t(1));
}

void TestThinClient::gatewayAsksForItsCredentials()
{
    const auto served = vditest::serveBuiltInDeployment(QStringLiteral("gateway"));
    QVERIFY(served);
    ThinClientWindow window;
    QVERIFY(logIn(window, *served, QStringLiteral("demo-password")));

    QDialog* dialog = nullptr;
    QTRY_VERIFY_WITH_TIMEOUT((dialog = window.findChild<QDialog*>(QStringLiteral("gatewayDialog"))) != nullptr, 10000);
    QVERIFY(QTest::qWaitForWindowExposed(dialog));
    QTest::keyClicks(dialog->findChild<QLineEdit*>(QStringLiteral("gatewayUser")), QStringLiteral("gw-user"));
    QTest::keyClicks(dialog->findChild<QLineEdit*>(QStringLiteral("gatewayPassword")), QStringLiteral("gw-password"));
    screenshot(*dialog, "thinclient-gateway-dialog");
    dialog->accept();

    QTRY_COMPARE_WITH_TIMEOUT(child<QTreeWidget>(window, "desktops")->topLevelItemCount(), 3, 10000);
    QVERIFY(!served->calls("/gateway.GatewayCore/LoginGateway").empty());
    screenshot(window, "thinclient-gateway");
}

int main(int argc, char* argv[])
{
    vditest::isolateHome();
    QApplication app(argc, argv);
    TestThinClient test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_thinclient.moc"
