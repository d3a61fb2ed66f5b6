#include "testsupport.h"

#include <QDir>
#include <QProcess>
#include <QTcpServer>

namespace vditest {

namespace {
std::unique_ptr<vdifake::IsolatedHome> g_home;

std::mutex g_logMutex;
QList<QPair<QtMsgType, QString>> g_lines;
QtMessageHandler g_previous = nullptr;
int g_captures = 0;

void captureHandler(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    {
        std::lock_guard<std::mutex> lock(g_logMutex);
        g_lines.append(qMakePair(type, message));
    }
    if (g_previous && qEnvironmentVariableIsSet("VDI_TEST_VERBOSE"))
        g_previous(type, context, message);
}
} // namespace

void isolateHome()
{
    if (!g_home)
        g_home.reset(new vdifake::IsolatedHome);
}

QString homePath()
{
    return g_home ? g_home->path() : QString();
}

QString makeDocumentsDir()
{
    const QString path = homePath() + QStringLiteral("/Documents");
    QDir().mkpath(path);
    return path;
}

LogCapture::LogCapture()
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    if (g_captures++ == 0) {
        g_lines.clear();
        g_previous = qInstallMessageHandler(captureHandler);
    }
}

LogCapture::~LogCapture()
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    if (--g_captures == 0)
        qInstallMessageHandler(g_previous);
}

QList<QPair<QtMsgType, QString>> LogCapture::lines() const
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    return g_lines;
}

int LogCapture::count(const QString& text, int type) const
{
    int n = 0;
    for (const auto& line : lines()) {
        if ((type < 0 || line.first == type) && line.second.contains(text))
            ++n;
    }
    return n;
}

void LogCapture::clear()
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    g_lines.clear();
}

QString LogCapture::dump() const
{
    QStringList out;
    for (const auto& line : lines())
        out << QString::number(line.first) + QStringLiteral(": ") + line.second;
    return out.join(QLatin1Char('\n'));
}

TestServer::TestServer()
{
    m_options.certDir = m_dir.path();
    m_server.reset(new vdifake::FakeServer(m_options));
    m_options.port = m_server->port();
    m_options.certPath = m_server->pemPath();
    m_options.keyPath = m_server->keyPath();
}

bool TestServer::restart()
{
    m_server.reset();
    m_server.reset(new vdifake::FakeServer(m_options));
    return m_server->isRunning() && m_server->port() == m_options.port;
}

void TestServer::connect(VdiDesktopGrpcWorker& worker, bool isEnglish) const
{
    worker.initConnection(pemPath(), QStringLiteral("127.0.0.1"), port(), isEnglish);
}

void TestServer::connect(VdiDesktopGrpcThread& facade, bool isEnglish) const
{
    facade.initConnection(pemPath(), QStringLiteral("127.0.0.1"), port(), isEnglish);
}

ushort unusedPort()
{
    QTcpServer listener;
    listener.listen(QHostAddress::LocalHost);
    const ushort port = listener.serverPort();
    listener.close();
    return port;
}

std::unique_ptr<vdifake::ScenarioServer> serveBuiltInDeployment(const QString& mode)
{
    vdifake::ScenarioServer::Options options;
    options.mode = mode;
    std::unique_ptr<vdifake::ScenarioServer> server(new vdifake::ScenarioServer(vdifake::builtInScenario(), options));
    QString error;
    if (!server->start(&error)) {
        qWarning() << "the simulated deployment does not start:" << error;
        server.reset();
    }
    return server;
}

} // namespace vditest

vditest::FakeTools::FakeTools(const QMap<QString, QString>& bodies) : m_tools(bodies.keys()), m_oldPath(qgetenv("PATH"))
{
    const QString dir = m_dir.path();
    if (!m_dir.isValid() || dir.contains(QLatin1Char('\'')) || dir.contains(QLatin1Char(':')))
        return;
    // Each call appends its arguments, each ended by US, and then RS to <tool>.calls.
    const QString record = QStringLiteral("for a in \"$@\"; do printf '%s\\037' \"$a\"; done >> '%1/%2.calls'\n"
                                          "printf '\\036' >> '%1/%2.calls'\n");
    m_written = true;
    for (auto it = bodies.begin(); it != bodies.end(); ++it) {
        QFile file(m_dir.filePath(it.key()));
        QString body = it.value();
        body.replace(QLatin1String("@DIR@"), dir);
        m_written = m_written && file.open(QIODevice::WriteOnly)
                    && file.write(("#!/bin/sh\n" + record.arg(dir, it.key()) + body + "\nexit 0\n").toUtf8()) > 0;
        file.close();
        m_written = m_written && file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    qputenv("PATH", QFile::encodeName(dir) + ':' + m_oldPath);
}

vditest::FakeTools::~FakeTools()
{
    qputenv("PATH", m_oldPath);
}

bool vditest::FakeTools::ready() const
{
    if (!m_written)
        return false;
    QStringList commands, expected;
    for (const QString& tool : m_tools) {  // dash's `command -v` answers for one operand only
        commands << QStringLiteral("command -v ") + tool;
        expected << m_dir.filePath(tool);
    }
    QProcess sh;
    sh.start(QStringLiteral("sh"), {QStringLiteral("-c"), commands.join(QStringLiteral("; "))});
    sh.waitForFinished(5000);
    return QString::fromUtf8(sh.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts) == expected;
}

QList<QStringList> vditest::FakeTools::calls(const QString& tool) const
{
    QFile file(m_dir.filePath(tool + QStringLiteral(".calls")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList records = QString::fromUtf8(file.readAll()).split(QChar(0x1e));
    records.removeLast();
    QList<QStringList> out;
    for (const QString& record : qAsConst(records)) {
        QStringList args = record.split(QChar(0x1f));
        args.removeLast();
        out << args;
    }
    return out;
}

QStringList vditest::FakeTools::callLines(const QString& tool) const
{
    QStringList lines;
    for (const QStringList& args : calls(tool))
        lines << args.join(QLatin1Char(' '));
    return lines;
}

void vditest::FakeTools::clearCalls()
{
    for (const QString& tool : qAsConst(m_tools))
        QFile::remove(m_dir.filePath(tool + QStringLiteral(".calls")));
}

namespace vditest {

EmittedSignals::EmittedSignals(QObject& object)
{
    const QMetaObject& meta = *object.metaObject();
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        if (meta.method(i).methodType() == QMetaMethod::Signal)
            m_spies.emplace_back(meta.method(i).name(), std::make_unique<QSignalSpy>(&object, meta.method(i)));
    }
}

QString EmittedSignals::emitted() const
{
    QStringList list;
    for (const auto& spy : m_spies) {
        if (spy.second->count() > 0)
            list << QStringLiteral("%1x%2").arg(QString::fromLatin1(spy.first)).arg(spy.second->count());
    }
    return list.join(QLatin1Char(' '));
}

} // namespace vditest
