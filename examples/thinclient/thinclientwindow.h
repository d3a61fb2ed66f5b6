#pragma once

// The main window of the example thin client: where the server is, who logs in, the user's pools
// and desktops, and what can be done with a desktop. Every request goes through the library's
// facade and every answer comes back as one of its signals; the window never waits.

#include "vdidesktopgrpcthread.h"

#include <QCommandLineOption>
#include <QMainWindow>

#include <functional>

class QCommandLineParser;
class QLabel;
class QProgressBar;
class QTimer;
class QLineEdit;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

class ThinClientWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit ThinClientWindow(QWidget* parent = nullptr);
    ~ThinClientWindow() override;

    // --server, --port, --pem and --user: each fills the field of its name.
    static QList<QCommandLineOption> commandLineOptions();
    void fillFrom(const QCommandLineParser& parser);

    // Asks for the server's certificate file; empty when cancelled. A file dialog unless replaced
    // (a test answers here without a dialog).
    std::function<QString()> choosePemFile;

private:
    enum class Session { LoggedOut, LoggingIn, LoggedIn };

    // The road: local identity, channels, server type, login.
    void logIn();
    void onDeviceInfo(const QString& ip, const QString& mac, bool found);
    void onServerType(const ServerTypeInfoResp& reply, bool ok);
    void onLogin(const LoginReply& reply, bool ok);
    void askForGatewayCredentials();
    // No call to the server: the heartbeat stops and the session is forgotten.
    void logOut();
    // A desktop of the selected pool handed out, and its connection data.
    void apply();
    void applyFor(const tagVmNodeInfo& pool);
    void onApplied(const ApplyForVMReply& reply, bool ok);
    void onConnectionData(const OperateForVMReply& reply, bool ok);
    // Start, shut down, reboot the selected desktop.
    void operate(int opType);
    void onOperated(const OperateForVMReply& reply, bool ok);
    void onHeartbeat(const HeartbeatReply& reply, bool ok);
    // One-key help: the report (behind a gateway with the upload of screenshots and logs, which
    // may take minutes without progress from the library), shown as busy meanwhile.
    void askForHelp();
    void onHelpAnswered(const OneKeyHelpInfoReply& reply, bool ok);

    // Each button enabled only where it applies.
    void updateButtons();
    QTreeWidgetItem* selectedPool() const;
    QTreeWidgetItem* selectedDesktop() const;
    tagVmNodeInfo nodeOf(const QTreeWidgetItem* desktop) const;
    void showError(const QString& what, const tagErrorData& error);

    VdiDesktopGrpcThread m_grpc;
    Session m_session = Session::LoggedOut;
    QLineEdit* m_server;
    QLineEdit* m_port;
    QLineEdit* m_pem;
    QLineEdit* m_user;
    QLineEdit* m_password;
    QPushButton* m_login;
    QPushButton* m_logout;
    QTreeWidget* m_desktops;
    QPushButton* m_apply;
    QPushButton* m_start;
    QPushButton* m_shutDown;
    QPushButton* m_reboot;
    QLabel* m_connection;
    QLabel* m_error;
    QLabel* m_heartbeat;
    QLineEdit* m_problem;
    QPushButton* m_help;
    QProgressBar* m_helpBusy;
    QLabel* m_helpState;
    QTimer* m_helpTicker;
    qint64 m_helpStarted = 0;
    int m_applyAttempts = 0;
};
