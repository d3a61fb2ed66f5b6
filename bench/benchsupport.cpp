#include "benchsupport.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

#include <dirent.h>
#include <pthread.h>
#include <sys/resource.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>

#include <grpcpp/grpcpp.h>

#include "deployment.h"
#include "fakeserver.h"
#include "scenario.h"
#include "vdidesktopgrpcthread.h"

namespace vdibench {

double microsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

int positiveOption(const QStringList& args, const QString& name, int fallback)
{
    const int at = args.indexOf(name);
    if (at < 0 || at + 1 >= args.size())
        return fallback;
    return std::max(1, args[at + 1].toInt());
}

IsolatedHome::IsolatedHome()
{
    for (const char* name : {"QT_LOGGING_RULES", "QT_LOGGING_CONF", "QT_MESSAGE_PATTERN"})
        qunsetenv(name);
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
}

namespace {

std::atomic<long> g_droppedLines{0};

void dropLine(QtMsgType, const QMessageLogContext&, const QString&)
{
    g_droppedLines.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

void dropLogLines()
{
    qInstallMessageHandler(dropLine);
}

long droppedLogLines()
{
    return g_droppedLines.load();
}

long long statusKib(const char* key)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith(key))
            return line.mid(int(qstrlen(key))).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

int entriesOf(const char* dir)
{
    DIR* d = ::opendir(dir);
    if (!d)
        return -1;
    int count = 0;
    while (const dirent* entry = ::readdir(d)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            ++count;
    }
    ::closedir(d);
    return count;
}

int openDescriptors()
{
    return entriesOf("/proc/self/fd") - 1;  // not the descriptor of the listing itself
}

int threadCount()
{
    return entriesOf("/proc/self/task");
}

int grpcThreadCount()
{
    static const char* const names[] = {"default-executo", "event_engine", "grpc_global_tim", "resolver-execut",
                                        "timer_manager"};
    const QDir tasks(QStringLiteral("/proc/self/task"));
    int count = 0;
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile comm(tasks.filePath(task + QStringLiteral("/comm")));
        if (!comm.open(QIODevice::ReadOnly))
            continue;  // the thread has ended meanwhile
        const QByteArray name = comm.readAll().trimmed();
        count += std::any_of(std::begin(names), std::end(names),
                             [&](const char* grpcName) { return name.startsWith(grpcName); });
    }
    return count;
}

long long defaultStackKib()
{
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    size_t size = 0;
    pthread_attr_getstacksize(&attr, &size);
    pthread_attr_destroy(&attr);
    return static_cast<long long>(size / 1024);
}

long long threadStackKib(int* areas)
{
    // glibc maps a thread's stack and its guard page as one area and then protects the guard:
    // smaps shows a "---p" area of the guard right before the "rw-p" area of the stack.
    const long long stackKib = defaultStackKib();
    QFile file(QStringLiteral("/proc/self/smaps"));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    long long total = 0;
    int found = 0;
    bool previousWasGuard = false;
    bool inStack = false;
    for (const QByteArray& line : file.readAll().split('\n')) {
        const QList<QByteArray> words = line.simplified().split(' ');
        if (words.size() >= 5 && !words[0].endsWith(':') && words[0].contains('-') && words[1].size() == 4) {
            // A mapping's header: "start-end perms offset dev inode [path]".
            const QList<QByteArray> range = words[0].split('-');
            const long long kib = static_cast<long long>((range[1].toULongLong(nullptr, 16) - range[0].toULongLong(nullptr, 16)) / 1024);
            const bool anonymous = words.size() == 5;
            inStack = previousWasGuard && anonymous && words[1] == "rw-p" && kib == stackKib;
            found += inStack;
            previousWasGuard = anonymous && words[1] == "---p";
        } else if (inStack && line.startsWith("Rss:")) {
            total += words.value(1).toLongLong();
        }
    }
    if (areas)
        *areas = found;
    return total;
}

long long raiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return -1;
    if (limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
        ::getrlimit(RLIMIT_NOFILE, &limit);
    }
    return static_cast<long long>(limit.rlim_cur);
}

void fillIdentity(VdiDesktopGrpcThread& facade)
{
    tagBaseInfo base;
    base.ip = QStringLiteral("192.168.10.23");
    base.mac = QStringLiteral("52:54:00:12:34:56");
    base.domain = QStringLiteral("corp.example");
    base.name = QStringLiteral("zhangsan");
    base.authType = QStringLiteral("password");
    base.deviceId = base.mac;
    base.deviceName = QStringLiteral("zhangsan-thinclient");
    base.clientType = QStringLiteral("linux");
    base.protocolType = QStringLiteral("spice");
    base.password = QStringLiteral("s3cr3t-p4ss");
    base.computerType = 1;
    facade.initBaseInfoParameter(base);
    tagExtendInfo extend;
    extend.model = QStringLiteral("ThinkCentre M720q");
    extend.vendor = QStringLiteral("LENOVO");
    extend.osType = QStringLiteral("Linux");
    extend.osVersion = QStringLiteral("Debian 12");
    extend.computerType = 1;
    extend.clientVersion = QStringLiteral("4.5.2");
    extend.clientLanguage = QStringLiteral("zh");
    extend.cpuArch = QStringLiteral("x86_64");
    extend.pineletVersion = QStringLiteral("2.1.0");
    facade.initExtendInfoParameter(extend);
}

std::string readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::string();
    return file.readAll().toStdString();
}

// ---- The server process ---------------------------------------------------------------------

namespace {

void answer(const char* text)
{
    std::printf("%s\n", text);
    std::fflush(stdout);
}

} // namespace

int serve(const QString& dir)
{
    // Outlives every server below, whose responders refer to it: desktops and passwords live
    // on across a restart, as on a controller that comes back.
    vdifake::SimulatedDeployment deployment;
    const vdifake::Scenario scenario = vdifake::defaultScenario(QStringLiteral("controller"));
    std::atomic<long long> served{0};
    vdifake::FakeServer::Options options;
    options.certDir = dir;
    options.commonName = QStringLiteral("vdi-bench-controller");
    std::unique_ptr<vdifake::FakeServer> server;
    const auto start = [&] {
        server.reset(new vdifake::FakeServer(options));
        QString error;
        if (!server->isRunning() || !vdifake::applyScenario(*server, scenario, &error)) {
            std::fprintf(stderr, "vdi-bench server: cannot serve on port %d %s\n", options.port, qPrintable(error));
            server.reset();
            return false;
        }
        deployment.install(*server, QStringLiteral("controller"));
        server->setCallObserver([&served](const vdifake::RecordedCall&) { served.fetch_add(1); });
        return true;
    };
    if (!start())
        return 1;
    options.port = server->port();
    options.certPath = server->pemPath();
    options.keyPath = server->keyPath();
    std::printf("port %d\npem %s\ncommon-name %s\nready\n", server->port(), qPrintable(server->pemPath()),
                qPrintable(server->commonName()));
    std::fflush(stdout);

    char line[512];
    while (std::fgets(line, sizeof line, stdin)) {
        const QStringList words = QString::fromUtf8(line).simplified().split(QLatin1Char(' '));
        const QString& verb = words.first();
        if (verb == QLatin1String("down")) {
            server.reset();
            answer("down");
        } else if (verb == QLatin1String("up")) {
            answer(server || start() ? "up" : "failed");
        } else if (verb == QLatin1String("fail") && words.size() == 3 && server) {
            vdifake::Script script;
            script.code = grpc::StatusCode(words[2].toInt());
            script.message = "scripted failure";
            server->queueScript(words[1].toStdString(), script);
            // Nothing of the recordings is needed here: keep the server's memory flat.
            server->clearCalls();
            answer("queued");
        } else if (verb == QLatin1String("calls")) {
            std::printf("calls %lld\n", served.load());
            std::fflush(stdout);
        } else {
            answer("unknown");
        }
    }
    server.reset();
    return 0;
}

int serveIfAsked(const QStringList& args)
{
    return args.size() == 3 && args[1] == QLatin1String("--serve") ? serve(args[2]) : -1;
}

ServerProcess::ServerProcess() : m_dir(QDir::tempPath() + QStringLiteral("/vdi-bench-server-XXXXXX"))
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--serve"), m_dir.path()});
    for (;;) {
        const QString line = readLine(30000);
        if (line.isEmpty())
            break;
        if (line.startsWith(QLatin1String("port ")))
            m_port = line.mid(5).toInt();
        else if (line.startsWith(QLatin1String("pem ")))
            m_pem = line.mid(4);
        else if (line.startsWith(QLatin1String("common-name ")))
            m_commonName = line.mid(12);
        else if (line == QLatin1String("ready"))
            return;
    }
    m_port = 0;
}

ServerProcess::~ServerProcess()
{
    m_process.closeWriteChannel();
    if (!m_process.waitForFinished(10000))
        m_process.kill();
}

QString ServerProcess::readLine(int timeoutMs)
{
    while (!m_process.canReadLine()) {
        if (!m_process.waitForReadyRead(timeoutMs))
            return QString();
    }
    return QString::fromUtf8(m_process.readLine()).trimmed();
}

QString ServerProcess::command(const QString& line)
{
    m_process.write((line + QLatin1Char('\n')).toUtf8());
    m_process.waitForBytesWritten(10000);
    return readLine(30000);
}

// ---- A bare grpc++ heartbeat ----------------------------------------------------------------

RawHeartbeat::RawHeartbeat(const ServerProcess& server, const std::string& pemText)
{
    grpc::SslCredentialsOptions ssl;
    ssl.pem_root_certs = pemText;
    grpc::ChannelArguments args;
    args.SetSslTargetNameOverride(server.commonName().toStdString());
    m_stub = client::ClientCore::NewStub(grpc::CreateCustomChannel("127.0.0.1:" + std::to_string(server.port()),
                                                                   grpc::SslCredentials(ssl), args));
    m_request.set_vm_ip("10.20.30.41");
    client::ClientBaseInfo& base = *m_request.mutable_client_base_info();
    base.set_ip("192.168.10.23");
    base.set_mac("52:54:00:12:34:56");
    base.set_name("demo-user");
    base.set_device_id("52:54:00:12:34:56");
    base.set_vmuuid("6f1c2a7e-5b3d-4c8e-9a01-2b7d4e6f8a90");
    client::ClientExtendInfo& extend = *m_request.mutable_client_extend_info();
    extend.set_client_version("4.5.2");
    extend.set_client_language("zh");
}

bool RawHeartbeat::call()
{
    grpc::ClientContext context;
    context.set_deadline(gpr_timespec{30, 0, GPR_TIMESPAN});  // the worker's relative 30 s
    context.AddMetadata("gatewayaccesstoken", "");
    context.AddMetadata("client-language", "zh");
    client::HeartbeatResp reply;
    const grpc::Status status = m_stub->Heartbeat(&context, m_request, &reply);
    return status.ok() && reply.error().error_code() == 0;
}

} // namespace vdibench
