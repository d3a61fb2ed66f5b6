// The example thin client's window on a real X display (Xvfb), driven through its widgets against
// the built-in deployment served in this process. Screenshots of each state are kept.
#include "testsupport.h"
#include "thinclientwindow.h"

#include <QtWidgets>

namespace {

template <class W = QPushButton>
W* child(QWidget& window, const char* name)
{
    return window.findChild<W*>(QLatin1String(name));
}

// The window as main() makes it from a command line, shown.
bool open(ThinClientWindow& window, const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addOptions(ThinClientWindow::commandLineOptions());
    if (!parser.parse(QStringList{QStringLiteral("vdi-thinclient-example")} + arguments))
        return false;
    window.fillFrom(parser);
    window.show();
    return QTest::qWaitForWindowExposed(&window);
}

// Types the password and presses Enter.
void enterPassword(QWidget& window, const QString& password)
{
    auto* edit = child<QLineEdit>(window, "password");
    edit->clear();
    QTest::keyClicks(edit, password);
    QTest::keyClick(edit, Qt::Key_Return);
}

// The names of the buttons that can be clicked, sorted.
QStringList enabledButtons(QWidget& window)
{
    QStringList names;
    for (QPushButton* b : window.findChildren<QPushButton*>())
        if (b->isEnabled())
            names << b->objectName();
    names.sort();
    return names;
}

void screenshot(QWidget& window, const char* name)
{
    QApplication::processEvents();  // the layout settled
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
    void commandLineFillsTheFields_data();
    void commandLineFillsTheFields();
    void sessionFromLoginToLogout();
    void gatewayAsksForItsCredentials();
};

void TestThinClient::commandLineFillsTheFields_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("fields");  // server, port, pem, user
    QTest::addColumn<bool>("canLogIn");
    const auto row = [](const char* name, const QStringList& arguments, const char* fields, bool canLogIn) {
        QTest::newRow(name) << arguments << QString::fromUtf8(fields).split(QLatin1Char('|')) << canLogIn;
    };
    const QStringList pemAndUser{"--pem", "/etc/vdi/ca.pem", "--user", "ann"};
    row("none", {}, "127.0.0.1|||", false);
    row("all", QStringList{"--server", "vdi.example", "--port", "8443"} + pemAndUser, "vdi.example|8443|/etc/vdi/ca.pem|ann", true);
    row("blank server", QStringList{"--server", " ", "--port", "8443"} + pemAndUser, " |8443|/etc/vdi/ca.pem|ann", false);
    row("port out of range", QStringList{"--port", "70000"} + pemAndUser, "127.0.0.1|70000|/etc/vdi/ca.pem|ann", false);
    row("no pem", {"--port", "8443", "--user", "ann"}, "127.0.0.1|8443||ann", false);
    row("no user", {"--port", "8443", "--pem", "ca.pem"}, "127.0.0.1|8443|ca.pem|", false);
}

void TestThinClient::commandLineFillsTheFields()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, fields);
    QFETCH(bool, canLogIn);
    ThinClientWindow window;
    QVERIFY(open(window, arguments));
    QStringList shown;
    for (const char* name : {"server", "port", "pem", "user"})
        shown << child<QLineEdit>(window, name)->text();
    QCOMPARE(shown, fields);
    QCOMPARE(enabledButtons(window), (canLogIn ? QStringList{"browsePem", "login"} : QStringList{"browsePem"}));
}

// The pem found with "Browse…", a refused login (Enter in the password field) and a second try,
// the buttons as the selection allows, a desktop started, one of a pool handed out (no password
// shown), a long error wrapped, a help report held 3 s by the server (the shell tools it may run
// are stand-ins first on PATH) shown as busy, and a log out.
void TestThinClient::sessionFromLoginToLogout()
{
    const vditest::FakeTools fakes({{"w", QString()}, {"sudo", QString()}, {"dpkg", QString()}, {"chown", QString()}});
    QVERIFY(fakes.ready());
    const auto served = vditest::serveBuiltInDeployment(QStringLiteral("controller"));
    QVERIFY(served);
    served->withServer([](vdifake::FakeServer& server) { server.setDelay("/client.ClientCore/onekeyHelp", 3000); });
    ThinClientWindow window;
    QVERIFY(open(window, {QStringLiteral("--port"), QString::number(served->port()), QStringLiteral("--user"),
                          QStringLiteral("demo-user")}));
    auto* tree = child<QTreeWidget>(window, "desktops");
    auto* error = child<QLabel>(window, "error");
    enterPassword(window, QStringLiteral("wrong"));
    QVERIFY(window.statusBar()->currentMessage().isEmpty());  // no pem: Enter did nothing
    screenshot(window, "thinclient-no-pem");

    QString chosen = served->pemPath();
    window.choosePemFile = [&chosen] { return chosen; };
    QTest::mouseClick(child(window, "browsePem"), Qt::LeftButton);
    chosen.clear();  // cancelled
    QTest::mouseClick(child(window, "browsePem"), Qt::LeftButton);
    QCOMPARE(child<QLineEdit>(window, "pem")->text(), served->pemPath());
    QCOMPARE(enabledButtons(window), QStringList({"browsePem", "login"}));

    enterPassword(window, QStringLiteral("wrong"));
    QCOMPARE(enabledButtons(window), QStringList{"browsePem"});  // under way
    QTRY_VERIFY_WITH_TIMEOUT(error->text().contains(QStringLiteral("wrong user name or password")), 10000);
    QCOMPARE(tree->topLevelItemCount(), 0);
    QCOMPARE(enabledButtons(window), QStringList({"browsePem", "login"}));
    screenshot(window, "thinclient-refused");

    enterPassword(window, QStringLiteral("demo-password"));
    QTRY_COMPARE_WITH_TIMEOUT(tree->topLevelItemCount(), 3, 10000);
    QVERIFY(error->text().isEmpty());
    QCOMPARE(enabledButtons(window), QStringList({"browsePem", "help", "logout"}));
    QTreeWidgetItem* pool = tree->topLevelItem(0);
    QCOMPARE(pool->text(0), QStringLiteral("Office desktops"));
    QTreeWidgetItem* desktop = pool->child(1);
    QCOMPARE(desktop->text(0) + ' ' + desktop->text(1), QStringLiteral("office-demo-user-2 shutdown"));
    QCOMPARE(pool->child(0)->text(1), QStringLiteral("suspended"));
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>(window, "heartbeat")->text(), QStringLiteral("Heartbeat: answered"), 10000);
    screenshot(window, "thinclient-desktops");

    tree->setCurrentItem(pool);
    QCOMPARE(enabledButtons(window), QStringList({"apply", "browsePem", "help", "logout"}));
    tree->setCurrentItem(desktop);
    QCOMPARE(enabledButtons(window), QStringList({"browsePem", "help", "logout", "reboot", "shutdown", "start"}));
    screenshot(window, "thinclient-desktop-selected");
    QTest::mouseClick(child(window, "start"), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(desktop->text(1), QStringLiteral("running"), 10000);

    tree->setCurrentItem(pool);
    QTest::mouseClick(child(window, "apply"), Qt::LeftButton);
    auto* connection = child<QLabel>(window, "connection");
    QTRY_VERIFY_WITH_TIMEOUT(connection->text().startsWith(QStringLiteral("Connect to office-demo-user-1 at ")), 10000);
    QVERIFY2(connection->text().contains(QStringLiteral(" port ")), qPrintable(connection->text()));
    QCOMPARE(pool->child(0)->text(1), QStringLiteral("running"));  // was suspended
    const auto asked = served->calls("/client.ClientCore/ApplyForVm").at(0).request<client::ApplyForVmReq>();
    QCOMPARE(QString::number(asked.id()) + ' ' + QString::fromStdString(asked.pool_name()),
             QStringLiteral("101 Office desktops"));
    // The reply carries the desktop's account and spice passwords (the simulator makes them
    // "Vdi-" and eight hex digits): no label or plain field shows them, nor the user's password.
    QStringList shown;
    for (QLabel* label : window.findChildren<QLabel*>())
        shown << label->text();
    for (QLineEdit* edit : window.findChildren<QLineEdit*>())
        shown << (edit->echoMode() == QLineEdit::Normal ? edit->text() : QString());
    const QString all = shown.join(QLatin1Char('\n'));
    QVERIFY2(!all.contains(QStringLiteral("Vdi-")) && !all.contains(QStringLiteral("demo-password")), qPrintable(all));
    QVERIFY(!connection->text().contains(QStringLiteral("password"), Qt::CaseInsensitive));
    screenshot(window, "thinclient-connection");

    tree->setCurrentItem(desktop);
    QTest::mouseClick(child(window, "shutdown"), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(desktop->text(1), QStringLiteral("shutdown"), 10000);

    // A long error takes more lines, not more width.
    const QString longError = QStringLiteral("The desktop cannot be rebooted now. ").repeated(14).trimmed();
    served->withServer([&longError](vdifake::FakeServer& server) {
        server.queueScript("/client.ClientCore/OperateForVm",
                           {grpc::StatusCode::INTERNAL, longError.toStdString(), {}, 0});
    });
    const int width = window.width();
    QTest::mouseClick(child(window, "reboot"), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(error->text().contains(longError), 10000);
    QApplication::processEvents();
    QCOMPARE(window.width(), width);
    QVERIFY2(error->height() > 3 * error->fontMetrics().height(), qPrintable(QString::number(error->height())));
    screenshot(window, "thinclient-long-error");

    QTest::keyClicks(child<QLineEdit>(window, "problem"), QStringLiteral("The desktop freezes"));
    auto* busy = child<QProgressBar>(window, "helpBusy");
    auto* state = child<QLabel>(window, "helpState");
    QTest::mouseClick(child(window, "help"), Qt::LeftButton);
    QVERIFY(busy->isVisible() && !child(window, "help")->isEnabled());
    QTRY_COMPARE_WITH_TIMEOUT(state->text(), QStringLiteral("Sending the help report... 1 s"), 5000);
    screenshot(window, "thinclient-help-busy");
    QTRY_VERIFY_WITH_TIMEOUT(state->text().startsWith(QStringLiteral("Help report taken: task ")), 10000);
    QVERIFY(!busy->isVisible() && child(window, "help")->isEnabled());
    QCOMPARE(served->calls("/client.ClientCore/onekeyHelp").size(), size_t(1));

    // Log out: the heartbeat stopped through the facade, the session forgotten.
    const vditest::LogCapture log;
    QTest::mouseClick(child(window, "logout"), Qt::LeftButton);
    QVERIFY(log.contains(QStringLiteral("going to stop send Heart")));
    QCOMPARE(tree->topLevelItemCount(), 0);
    QVERIFY(connection->text().isEmpty() && error->text().isEmpty() && state->text().isEmpty());
    QVERIFY(child<QLineEdit>(window, "password")->text().isEmpty());
    QCOMPARE(child<QLabel>(window, "heartbeat")->text(), QStringLiteral("Heartbeat: not started"));
    QCOMPARE(enabledButtons(window), QStringList({"browsePem", "login"}));
    screenshot(window, "thinclient-logged-out");
}

void TestThinClient::gatewayAsksForItsCredentials()
{
    const auto served = vditest::serveBuiltInDeployment(QStringLiteral("gateway"));
    QVERIFY(served);
    ThinClientWindow window;
    QVERIFY(open(window, {QStringLiteral("--port"), QString::number(served->port()), QStringLiteral("--pem"),
                          served->pemPath(), QStringLiteral("--user"), QStringLiteral("demo-user")}));
    enterPassword(window, QStringLiteral("demo-password"));

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
