#include "testsupport.h"

#include <QDir>
#include <QTcpServer>

namespace vditest {

namespace {
QTemporaryDir* g_home = nullptr;

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
    if (g_home)
        return;
    g_home = new QTemporaryDir(QDir::tempPath() + QStringLiteral("/vdi-test-home-XXXXXX"));
    const QByteArray home = g_home->path().toUtf8();
    qputenv("HOME", home);
    qputenv("XDG_CONFIG_HOME", home + "/.config");
    qputenv("XDG_DATA_HOME", home + "/.local/share");
    qputenv("XDG_CACHE_HOME", home + "/.cache");
    qputenv("XDG_STATE_HOME", home + "/.local/state");
    qunsetenv("XDG_DOCUMENTS_DIR");
    // Never let a proxy of the machine reach loopback traffic.
    for (const char* name : {"http_proxy", "https_proxy", "HTTP_PROXY", "HTTPS_PROXY", "grpc_proxy", "all_proxy", "ALL_PROXY"})
        qunsetenv(name);
    std::atexit([] { delete g_home; g_home = nullptr; });
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
    vdifake::FakeServer::Options options;
    options.certDir = m_dir.path();
    options.commonName = QStringLiteral("vdi-fake-controller");
    m_server.reset(new vdifake::FakeServer(options));
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

} // namespace vditest
