#include "thinclientwindow.h"

#include <QCommandLineParser>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QDateTime>
#include <QFileDialog>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QStatusBar>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {
// What the items of the tree keep besides their columns: a pool (top level) its id, a desktop
// (in its pool) its id and UUID.
enum Role { PoolIdRole = Qt::UserRole, VmIdRole, UuidRole };
enum Column { NameColumn, StateColumn, AddressColumn };
// The controller's OperateForVm actions that the window offers.
enum Operation { QueryDesktop = 0, StartDesktop = 1, ShutDownDesktop = 2, RebootDesktop = 3 };
const int kApplyAttempts = 5;

QLineEdit* field(const QString& name, const QString& text = QString())
{
    auto* edit = new QLineEdit(text);
    edit->setObjectName(name);
    return edit;
}

QPushButton* button(const QString& name, const QString& text)
{
    auto* b = new QPushButton(text);
    b->setObjectName(name);
    return b;
}

QString firstAddress(const tagVMInfo& vm)
{
    for (const tagVMAddress& address : vm.addressList)
        if (!address.ipList.isEmpty())
            return address.ipList.first();
    return QString();
}
} // namespace

ThinClientWindow::ThinClientWindow(QWidget* parent)
    : QMainWindow(parent)
    , m_server(field(QStringLiteral("server"), QStringLiteral("127.0.0.1")))
    , m_port(field(QStringLiteral("port")))
    , m_pem(field(QStringLiteral("pem")))
    , m_user(field(QStringLiteral("user")))
    , m_password(field(QStringLiteral("password")))
    , m_login(button(QStringLiteral("login"), tr("Log in")))
    , m_logout(button(QStringLiteral("logout"), tr("Log out")))
    , m_desktops(new QTreeWidget)
    , m_apply(button(QStringLiteral("apply"), tr("Apply")))
    , m_start(button(QStringLiteral("start"), tr("Start")))
    , m_shutDown(button(QStringLiteral("shutdown"), tr("Shut down")))
    , m_reboot(button(QStringLiteral("reboot"), tr("Reboot")))
    , m_connection(new QLabel)
    , m_error(new QLabel)
    , m_heartbeat(new QLabel(tr("Heartbeat: not started")))
    , m_problem(field(QStringLiteral("problem")))
    , m_help(button(QStringLiteral("help"), tr("Ask for help")))
    , m_helpBusy(new QProgressBar)
    , m_helpState(new QLabel)
    , m_helpTicker(new QTimer(this))
{
    setWindowTitle(tr("Thin client"));
    choosePemFile = [this] {
        return QFileDialog::getOpenFileName(this, tr("Certificate of the server"), QString(),
                                            tr("Certificates (*.pem *.crt);;All files (*)"));
    };
    m_password->setEchoMode(QLineEdit::Password);
    m_desktops->setObjectName(QStringLiteral("desktops"));
    m_desktops->setHeaderLabels({tr("Pool / desktop"), tr("State"), tr("Address")});
    m_desktops->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_connection->setObjectName(QStringLiteral("connection"));
    m_error->setObjectName(QStringLiteral("error"));
    m_error->setStyleSheet(QStringLiteral("color: #b00020"));
    m_error->setWordWrap(true);  // a long text takes lines, not the screen's width
    m_heartbeat->setObjectName(QStringLiteral("heartbeat"));
    statusBar()->addPermanentWidget(m_heartbeat);

    auto* server = new QFormLayout;
    server->addRow(tr("Server"), m_server);
    server->addRow(tr("Port"), m_port);
    QPushButton* browse = button(QStringLiteral("browsePem"), tr("Browse…"));
    auto* pem = new QHBoxLayout;
    pem->addWidget(m_pem);
    pem->addWidget(browse);
    server->addRow(tr("Certificate (PEM)"), pem);
    server->addRow(tr("User"), m_user);
    server->addRow(tr("Password"), m_password);
    auto* session = new QHBoxLayout;
    session->addWidget(m_login);
    session->addWidget(m_logout);
    auto* actions = new QHBoxLayout;
    for (QPushButton* b : {m_apply, m_start, m_shutDown, m_reboot})
        actions->addWidget(b);
    auto* layout = new QVBoxLayout;
    layout->addLayout(server);
    layout->addLayout(session);
    layout->addWidget(m_error);
    layout->addWidget(m_desktops);
    layout->addLayout(actions);
    layout->addWidget(m_connection);
    m_problem->setPlaceholderText(tr("What goes wrong?"));
    m_helpBusy->setObjectName(QStringLiteral("helpBusy"));
    m_helpBusy->setRange(0, 0);  // busy: the library reports no progress
    m_helpBusy->setVisible(false);
    m_helpState->setObjectName(QStringLiteral("helpState"));
    auto* help = new QHBoxLayout;
    help->addWidget(m_problem);
    help->addWidget(m_help);
    help->addWidget(m_helpBusy);
    help->addWidget(m_helpState);
    layout->addLayout(help);
    auto* central = new QWidget;
    central->setLayout(layout);
    setCentralWidget(central);
    resize(720, 560);

    connect(browse, &QPushButton::clicked, this, [this] {
        const QString file = choosePemFile();
        if (!file.isEmpty())
            m_pem->setText(file);
    });
    connect(m_login, &QPushButton::clicked, this, &ThinClientWindow::logIn);
    // Enter in the password field: as the button, which does nothing while disabled.
    connect(m_password, &QLineEdit::returnPressed, m_login, &QPushButton::click);
    connect(m_logout, &QPushButton::clicked, this, &ThinClientWindow::logOut);
    connect(m_apply, &QPushButton::clicked, this, &ThinClientWindow::apply);
    connect(m_start, &QPushButton::clicked, this, [this] { operate(StartDesktop); });
    connect(m_shutDown, &QPushButton::clicked, this, [this] { operate(ShutDownDesktop); });
    connect(m_reboot, &QPushButton::clicked, this, [this] { operate(RebootDesktop); });
    for (QLineEdit* edit : {m_server, m_port, m_pem, m_user})
        connect(edit, &QLineEdit::textChanged, this, &ThinClientWindow::updateButtons);
    connect(m_desktops, &QTreeWidget::currentItemChanged, this, &ThinClientWindow::updateButtons);
    connect(m_help, &QPushButton::clicked, this, &ThinClientWindow::askForHelp);
    connect(m_helpTicker, &QTimer::timeout, this, [this] {
        m_helpState->setText(tr("Sending the help report... %1 s")
                                 .arg((QDateTime::currentMSecsSinceEpoch() - m_helpStarted) / 1000));
    });

    // Every answer of the library, on this (the GUI) thread.
    connect(&m_grpc, &VdiDesktopGrpcThread::deviceNetworkInfo, this, &ThinClientWindow::onDeviceInfo);
    connect(&m_grpc, &VdiDesktopGrpcThread::queryServerTypeInfoResult, this, &ThinClientWindow::onServerType);
    connect(&m_grpc, &VdiDesktopGrpcThread::loginResult, this, &ThinClientWindow::onLogin);
    connect(&m_grpc, &VdiDesktopGrpcThread::inputGatewayAuthInfo, this, &ThinClientWindow::askForGatewayCredentials);
    connect(&m_grpc, &VdiDesktopGrpcThread::applyForVMResult, this, &ThinClientWindow::onApplied);
    connect(&m_grpc, &VdiDesktopGrpcThread::applyForVMOfQueryResult, this, &ThinClientWindow::onConnectionData);
    connect(&m_grpc, &VdiDesktopGrpcThread::operateVMResult, this, &ThinClientWindow::onOperated);
    connect(&m_grpc, &VdiDesktopGrpcThread::recvHeartbeatResultVDT, this, &ThinClientWindow::onHeartbeat);
    connect(&m_grpc, &VdiDesktopGrpcThread::SendUserAskHelpInfoResult, this, &ThinClientWindow::onHelpAnswered);

    tagBaseInfo identity;
    identity.deviceName = QStringLiteral("thinclient-example");
    identity.clientType = QStringLiteral("1");
    m_grpc.initBaseInfoParameter(identity);
    m_grpc.setStrictRedaction(true);  // the logs go with help reports: no password in them
    updateButtons();
}

ThinClientWindow::~ThinClientWindow()
{
    m_grpc.stop();
}

QList<QCommandLineOption> ThinClientWindow::commandLineOptions()
{
    return {{QStringLiteral("server"), tr("The controller or access gateway (default 127.0.0.1)."), tr("host")},
            {QStringLiteral("port"), tr("Its port."), tr("port")},
            {QStringLiteral("pem"), tr("The certificate to trust it by (PEM)."), tr("file")},
            {QStringLiteral("user"), tr("The user who logs in."), tr("name")}};
}

void ThinClientWindow::fillFrom(const QCommandLineParser& parser)
{
    // The fields are named as the options.
    for (QLineEdit* edit : {m_server, m_port, m_pem, m_user})
        if (parser.isSet(edit->objectName()))
            edit->setText(parser.value(edit->objectName()));
}

void ThinClientWindow::updateButtons()
{
    const bool loggedIn = m_session == Session::LoggedIn;
    const bool filled = !m_server->text().trimmed().isEmpty() && m_port->text().toUShort() > 0
                        && !m_pem->text().isEmpty() && !m_user->text().trimmed().isEmpty();
    m_login->setEnabled(m_session == Session::LoggedOut && filled);
    m_logout->setEnabled(loggedIn);
    m_apply->setEnabled(selectedPool() != nullptr);
    for (QPushButton* b : {m_start, m_shutDown, m_reboot})
        b->setEnabled(selectedDesktop() != nullptr);
    m_help->setEnabled(loggedIn && !m_helpTicker->isActive());
}

void ThinClientWindow::logIn()
{
    m_error->clear();
    m_session = Session::LoggingIn;
    updateButtons();
    statusBar()->showMessage(tr("Connecting..."));
    m_grpc.initDeviceInfo(m_server->text(), quint16(m_port->text().toUInt()));
}

void ThinClientWindow::onDeviceInfo(const QString& ip, const QString& mac, bool found)
{
    // Without a route to the server the identity still needs an address and a MAC.
    m_grpc.setLocalIP(found ? ip : QStringLiteral("127.0.0.1"));
    m_grpc.setLocalMAC(found ? mac : QStringLiteral("02:00:00:00:00:01"));
    m_grpc.initConnection(m_pem->text(), m_server->text(), ushort(m_port->text().toUInt()), false);
    m_grpc.queryServerTypeInfo();
}

void ThinClientWindow::onServerType(const ServerTypeInfoResp& reply, bool ok)
{
    if (!ok) {
        m_session = Session::LoggedOut;
        showError(tr("The server cannot be reached"), reply.error);
        return;
    }
    statusBar()->showMessage(reply.serverType == 1 ? tr("Logging in through the access gateway...")
                                                   : tr("Logging in..."));
    m_grpc.login(m_user->text(), m_password->text(), QStringLiteral("0"));
}

// The library found no saved gateway credentials: ask, and answer with loginGateway.
void ThinClientWindow::askForGatewayCredentials()
{
    auto* dialog = new QDialog(this);
    dialog->setObjectName(QStringLiteral("gatewayDialog"));
    dialog->setWindowTitle(tr("Access gateway"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QLineEdit* user = field(QStringLiteral("gatewayUser"));
    QLineEdit* password = field(QStringLiteral("gatewayPassword"));
    password->setEchoMode(QLineEdit::Password);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    auto* form = new QFormLayout(dialog);
    form->addRow(new QLabel(tr("The access gateway wants its own user and password.")));
    form->addRow(tr("Gateway user"), user);
    form->addRow(tr("Gateway password"), password);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    connect(dialog, &QDialog::finished, this, [this, user, password](int result) {
        // A cancelled dialog answers with nothing: the library then reports a failed login.
        emit m_grpc.loginGateway(result == QDialog::Accepted ? user->text() : QString(),
                                 result == QDialog::Accepted ? password->text() : QString());
    });
    dialog->open();
}

void ThinClientWindow::onLogin(const LoginReply& reply, bool ok)
{
    if (!ok) {
        m_session = Session::LoggedOut;
        showError(tr("Login refused"), reply.error);
        return;
    }
    m_session = Session::LoggedIn;
    statusBar()->showMessage(tr("Logged in as %1").arg(reply.name));
    for (const tagPoolInfo& pool : reply.poolList) {
        auto* poolItem = new QTreeWidgetItem(m_desktops, {pool.name});
        poolItem->setData(NameColumn, PoolIdRole, pool.id);
        for (const tagVM& vm : pool.vmList) {
            auto* item = new QTreeWidgetItem(poolItem, {vm.vmName, vm.vmStatus, firstAddress(vm)});
            item->setData(NameColumn, VmIdRole, vm.vmId);
            item->setData(NameColumn, UuidRole, vm.vmUuid);
        }
    }
    m_desktops->expandAll();
    updateButtons();
    // The session is kept alive with a heartbeat now and every five minutes.
    m_grpc.sendHeart(QString(), QString(), -1);
    m_grpc.startSendHeart();
}

void ThinClientWindow::logOut()
{
    m_grpc.stopSendHeart();
    m_session = Session::LoggedOut;
    m_desktops->clear();
    m_connection->clear();
    m_error->clear();
    m_password->clear();
    m_helpState->clear();
    m_heartbeat->setText(tr("Heartbeat: not started"));
    statusBar()->showMessage(tr("Logged out"));
    updateButtons();
}

QTreeWidgetItem* ThinClientWindow::selectedPool() const
{
    QTreeWidgetItem* item = m_desktops->currentItem();
    return item && !item->parent() ? item : nullptr;
}

QTreeWidgetItem* ThinClientWindow::selectedDesktop() const
{
    QTreeWidgetItem* item = m_desktops->currentItem();
    return item && item->parent() ? item : nullptr;
}

tagVmNodeInfo ThinClientWindow::nodeOf(const QTreeWidgetItem* desktop) const
{
    // The application's own handle, carried back in every answer about the desktop.
    return tagVmNodeInfo{desktop->data(NameColumn, UuidRole).toString(), desktop->text(NameColumn), 0};
}

void ThinClientWindow::apply()
{
    const QTreeWidgetItem* pool = selectedPool();
    if (!pool)
        return;
    m_connection->setText(tr("Asking for a desktop of %1...").arg(pool->text(NameColumn)));
    m_applyAttempts = 0;
    // The pool rides along as the request's node, which its answer carries back.
    applyFor(tagVmNodeInfo{pool->data(NameColumn, PoolIdRole).toString(), pool->text(NameColumn), 0});
}

void ThinClientWindow::applyFor(const tagVmNodeInfo& pool)
{
    ++m_applyAttempts;
    // No desktop named: the controller hands out one of the user's in the pool.
    m_grpc.applyForVM(pool, pool.nodeId, QString(), QString(), pool.nodeName, QString(), 0);
}

void ThinClientWindow::onApplied(const ApplyForVMReply& reply, bool ok)
{
    // true with code 4: the controller is still preparing the desktop; ask again.
    if (ok && reply.error.errorCode == 4 && m_applyAttempts < kApplyAttempts) {
        applyFor(reply.vmNode);
        return;
    }
    m_applyAttempts = 0;
    if (!ok || reply.error.errorCode > 0) {
        m_connection->clear();
        showError(tr("No desktop"), reply.error);
        return;
    }
    // The reply also holds the desktop's passwords, for the remote-desktop client: never shown.
    // From here on the node is the desktop handed out, as nodeOf() makes it.
    const tagVmNodeInfo desktop{reply.vmInfo.vmUuid, reply.vmInfo.vmName, 0};
    m_grpc.applyForVMOfQuery(desktop, QString::number(reply.vmInfo.vmId), reply.vmInfo.vmUuid, QString(), 0,
                             VdiGrpc::tagOperateVMWay(0), VdiGrpc::tagOperateVMType(QueryDesktop));
}

void ThinClientWindow::onConnectionData(const OperateForVMReply& reply, bool ok)
{
    if (!ok) {
        showError(tr("No connection data"), reply.error);
        return;
    }
    m_connection->setText(tr("Connect to %1 at %2, port %3 (spice)")
                              .arg(reply.vmNode.nodeName, reply.hostIp, reply.spicePort));
    onOperated(reply, ok);
}

void ThinClientWindow::operate(int opType)
{
    const QTreeWidgetItem* desktop = selectedDesktop();
    if (!desktop)
        return;
    m_grpc.operateVM(nodeOf(desktop), desktop->data(NameColumn, VmIdRole).toString(),
                     desktop->data(NameColumn, UuidRole).toString(), VdiGrpc::tagOperateVMType(opType),
                     VdiGrpc::tagOperateVMWay(0), 0, QString());
}

void ThinClientWindow::onOperated(const OperateForVMReply& reply, bool ok)
{
    if (!ok) {
        showError(tr("The operation failed"), reply.error);
        return;
    }
    // The node names the desktop's item by its UUID (applyForVMOfQuery's node too).
    for (QTreeWidgetItemIterator it(m_desktops); *it; ++it)
        if ((*it)->data(NameColumn, UuidRole).toString() == reply.vmNode.nodeId)
            (*it)->setText(StateColumn, reply.vmInfo.vmStatus);
}

void ThinClientWindow::onHeartbeat(const HeartbeatReply& reply, bool ok)
{
    // The library answers true for a server out of reach (14) or slow (4): the code tells.
    if (ok && reply.error.errorCode <= 0)
        m_heartbeat->setText(tr("Heartbeat: answered"));
    else
        m_heartbeat->setText(tr("Heartbeat: no answer (code %1)").arg(reply.error.errorCode));
}

void ThinClientWindow::askForHelp()
{
    m_helpBusy->setVisible(true);
    m_helpStarted = QDateTime::currentMSecsSinceEpoch();
    m_helpState->setText(tr("Sending the help report... 0 s"));
    m_helpTicker->start(1000);
    updateButtons();
    // Logs wanted (1); the screenshots are where the terminal keeps them ("screenshots").
    m_grpc.sendUserAskInfo(m_grpc.getLocalMAC(), m_user->text(), QString(), QString(), QStringLiteral("display"),
                           m_problem->text(), 1, QStringLiteral("screenshots"), m_grpc.getLocalIP(), QString());
}

void ThinClientWindow::onHelpAnswered(const OneKeyHelpInfoReply& reply, bool ok)
{
    m_helpTicker->stop();
    m_helpBusy->setVisible(false);
    updateButtons();
    if (ok)
        m_helpState->setText(tr("Help report taken: task %1").arg(reply.taskId));
    else
        showError(tr("Help report refused"), reply.error);
}

void ThinClientWindow::showError(const QString& what, const tagErrorData& error)
{
    updateButtons();
    const QString text = error.errorMsgEn.isEmpty() ? error.errorMsgZh : error.errorMsgEn;
    m_error->setText(QStringLiteral("%1: %2 (code %3)").arg(what, text).arg(error.errorCode));
    statusBar()->clearMessage();
}
