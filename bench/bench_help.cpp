// The help upload of a gateway deployment: one incompressible screenshot of 16 MiB, then of
// 256 MiB, packaged and streamed by the library, against a bare grpc++ client stream that sends
// the same zip in the same 64 KiB chunks to the same server. Measured side by side in one run:
//
// - throughput, timed at the server from the arrival of the meta message to the end of the
//   stream, so that packaging and connection set-up do not count on either side;
// - the growth of the client's peak resident memory (VmHWM) over its resident memory just
//   before the request, every client in a process of its own.
//
// The server is a process of its own too and writes what it receives to disk.
// Usage: vdi-bench-help [--rounds R] [--sizes 16,256]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <grpcpp/grpcpp.h>

#include "benchsupport.h"
#include "client/client_core.grpc.pb.h"
#include "testcertificate.h"
#include "vdidesktopgrpcthread.h"

namespace {

using vdibench::median;
using vdibench::statusKib;
using Clock = std::chrono::steady_clock;
const int kChunkBytes = 65536;
const char* const kCommonName = "vdi-bench-server";

void fail(const QString& text)
{
    std::fprintf(stderr, "vdi-bench-help: %s\n", text.toUtf8().constData());
    std::exit(1);
}

// ---- Memory figures of this process --------------------------------------------------------

// Resets the peak to the present resident size and returns that size.
qint64 resetPeakKib()
{
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    if (!file.open(QIODevice::WriteOnly) || file.write("5") != 1)
        fail(QStringLiteral("cannot reset the peak resident size"));
    file.close();
    return statusKib("VmRSS:");
}

// ---- The server ----------------------------------------------------------------------------

class UploadSink final : public client::ClientCore::Service
{
public:
    explicit UploadSink(const QString& dir) : m_dir(dir) {}

    grpc::Status onekeyHelp(grpc::ServerContext*, const client::OnekeyHelpReq*, client::OnekeyHelpResp* reply) override
    {
        reply->set_taskid(++m_tasks);
        return grpc::Status::OK;
    }

    grpc::Status onekeyHelpUseGateway(grpc::ServerContext*, grpc::ServerReader<client::onekeyHelpUploadReq>* reader,
                                      client::onekeyHelpUploadResp* reply) override
    {
        client::onekeyHelpUploadReq message;
        if (!reader->Read(&message) || !message.has_onekeyhelpuploadreqmeta())
            return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, "no meta message first");
        const Clock::time_point start = Clock::now();
        const QString name = QString::fromStdString(message.onekeyhelpuploadreqmeta().filename());
        QFile file(m_dir + QLatin1Char('/') + name);
        if (!file.open(QIODevice::WriteOnly))
            return grpc::Status(grpc::StatusCode::INTERNAL, "cannot write the upload");
        qint64 bytes = 0;
        int chunks = 0;
        while (reader->Read(&message)) {
            file.write(message.content().data(), qint64(message.content().size()));
            bytes += qint64(message.content().size());
            ++chunks;
        }
        file.close();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        std::printf("upload %s %lld %d %.6f\n", name.toUtf8().constData(), static_cast<long long>(bytes), chunks,
                    seconds);
        std::fflush(stdout);
        reply->set_code(0);
        return grpc::Status::OK;
    }

private:
    QString m_dir;
    std::atomic<long long> m_tasks{0};
};

int serve(const QString& dir)
{
    const vdifake::CertificateFiles cert =
        vdifake::makeSelfSignedCertificate(dir, QLatin1String(kCommonName), QLatin1String(kCommonName), QStringLiteral("server"));
    if (!cert.isValid())
        fail(QStringLiteral("no certificate"));
    QFile certFile(cert.certPath), keyFile(cert.keyPath);
    certFile.open(QIODevice::ReadOnly);
    keyFile.open(QIODevice::ReadOnly);
    grpc::SslServerCredentialsOptions options;
    options.pem_key_cert_pairs.push_back({keyFile.readAll().toStdString(), certFile.readAll().toStdString()});

    UploadSink sink(dir);
    int port = 0;
    grpc::ServerBuilder builder;
    builder.AddListeningPort("127.0.0.1:0", grpc::SslServerCredentials(options), &port);
    builder.RegisterService(&sink);
    std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (!server || port == 0)
        fail(QStringLiteral("the server did not start"));
    std::printf("port %d\npem %s\nready\n", port, cert.certPath.toUtf8().constData());
    std::fflush(stdout);
    // Ends when the orchestrator closes standard input.
    char line[64];
    while (std::fgets(line, sizeof line, stdin)) {
    }
    server->Shutdown();
    return 0;
}

// ---- The two clients -----------------------------------------------------------------------

// The library: a facade behind a gateway, its request channel warmed by one report without
// files, then the measured request with the screenshot folder of the terminal in `tree`.
int libraryClient(const QString& pem, int port, const QString& tree)
{
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
    qputenv("PATH", QFile::encodeName(tree + QStringLiteral("/bin")) + ':' + qgetenv("PATH"));
    VdiDesktopGrpcThread facade;
    facade.initServerType(1);
    facade.initConnection(pem, QStringLiteral("127.0.0.1"), ushort(port), false);

    bool ok = false;
    QEventLoop loop;
    QObject::connect(&facade, &VdiDesktopGrpcThread::SendUserAskHelpInfoResult, &loop,
                     [&](OneKeyHelpInfoReply, bool status) {
                         ok = status;
                         loop.quit();
                     });
    const auto ask = [&](const QString& screenshots) {
        ok = false;
        facade.sendUserAskInfo(QString(), QStringLiteral("bench"), QString(), QString(), QStringLiteral("bench"),
                               QString(), 0, screenshots, QStringLiteral("127.0.0.1"), QString());
        QTimer::singleShot(600000, &loop, &QEventLoop::quit);
        loop.exec();
        return ok;
    };
    if (!ask(QString()))
        fail(QStringLiteral("the warm-up report failed"));
    const qint64 before = resetPeakKib();
    if (!ask(QStringLiteral("yes")))
        fail(QStringLiteral("the measured report failed"));
    std::printf("growth %lld\n", static_cast<long long>(statusKib("VmHWM:") - before));
    facade.stop();
    return 0;
}

// A bare grpc++ client stream of the zip, 64 KiB at a time from one buffer, on a channel
// connected by one report first.
int rawClient(const QString& pem, int port, const QString& zipPath)
{
    QFile pemFile(pem);
    pemFile.open(QIODevice::ReadOnly);
    grpc::SslCredentialsOptions ssl;
    ssl.pem_root_certs = pemFile.readAll().toStdString();
    grpc::ChannelArguments args;
    args.SetSslTargetNameOverride(kCommonName);
    auto channel = grpc::CreateCustomChannel("127.0.0.1:" + std::to_string(port), grpc::SslCredentials(ssl), args);
    auto stub = client::ClientCore::NewStub(channel);
    // Connected first, as the library's channels are by its warm-up report.
    {
        grpc::ClientContext context;
        client::OnekeyHelpReq request;
        client::OnekeyHelpResp reply;
        if (!stub->onekeyHelp(&context, request, &reply).ok())
            fail(QStringLiteral("the raw warm-up report failed"));
    }

    const qint64 before = resetPeakKib();
    QFile zip(zipPath);
    if (!zip.open(QIODevice::ReadOnly))
        fail(QStringLiteral("cannot read %1").arg(zipPath));
    grpc::ClientContext context;
    client::onekeyHelpUploadResp reply;
    std::unique_ptr<grpc::ClientWriter<client::onekeyHelpUploadReq>> writer = stub->onekeyHelpUseGateway(&context, &reply);
    client::onekeyHelpUploadReq message;
    client::onekeyHelpUploadReqMeta& meta = *message.mutable_onekeyhelpuploadreqmeta();
    meta.set_taskid(1);
    meta.set_filename("raw_" + QFileInfo(zipPath).fileName().toStdString());
    meta.set_filetype("ScreenShot");
    writer->Write(message);
    std::vector<char> buffer(kChunkBytes);
    for (;;) {
        const qint64 read = zip.read(buffer.data(), kChunkBytes);
        if (read <= 0)
            break;
        message.set_content(buffer.data(), size_t(read));
        if (!writer->Write(message))
            break;
    }
    writer->WritesDone();
    const grpc::Status status = writer->Finish();
    if (!status.ok())
        fail(QStringLiteral("the raw upload failed: %1").arg(QString::fromStdString(status.error_message())));
    std::printf("growth %lld\n", static_cast<long long>(statusKib("VmHWM:") - before));
    return 0;
}

// ---- The orchestrator ----------------------------------------------------------------------

// A terminal whose login user has one screenshot of random bytes, and stand-ins for the shell
// tools the library runs.
void makeTerminal(const QString& tree, int mebibytes)
{
    const QString user = tree + QStringLiteral("/u");
    QDir().mkpath(user + QStringLiteral("/Documents/oneKeyHelpImage"));
    QDir().mkpath(user + QStringLiteral("/Downloads"));
    QDir().mkpath(tree + QStringLiteral("/bin"));
    QFile image(user + QStringLiteral("/Documents/oneKeyHelpImage/screen.png"));
    if (!image.open(QIODevice::WriteOnly))
        fail(QStringLiteral("cannot write the screenshot"));
    std::mt19937_64 random(20261124);
    std::vector<quint64> block((1 << 20) / sizeof(quint64));
    for (int i = 0; i < mebibytes; ++i) {
        for (quint64& word : block)
            word = random();
        image.write(reinterpret_cast<const char*>(block.data()), qint64(block.size() * sizeof(quint64)));
    }
    const QPair<QString, QString> tools[] = {
        {QStringLiteral("w"), QStringLiteral("echo '..%1 tty7 :0 10:00 1:00m 0.10s 0.01s xsession'").arg(user)},
        {QStringLiteral("sudo"), QStringLiteral("case \"$1\" in dpkg|chown) t=\"$1\"; shift; exec '%1/bin/'\"$t\" \"$@\" ;; esac; exit 1").arg(tree)},
        {QStringLiteral("dpkg"), QStringLiteral("echo 'ii oakdesk 1.0 amd64 1.0-bench client'")},
        {QStringLiteral("chown"), QStringLiteral("exit 0")},
    };
    for (const auto& tool : tools) {
        QFile file(tree + QStringLiteral("/bin/") + tool.first);
        file.open(QIODevice::WriteOnly);
        file.write(("#!/bin/sh\n" + tool.second + "\n").toUtf8());
        file.close();
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
}

struct Upload {
    QString name;
    qint64 bytes = 0;
    double seconds = 0;
};

class Server
{
public:
    explicit Server(const QString& dir)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--serve"), dir});
        while (m_process.waitForReadyRead(30000) || m_process.canReadLine()) {
            while (m_process.canReadLine()) {
                const QString line = QString::fromUtf8(m_process.readLine()).trimmed();
                if (line.startsWith(QLatin1String("port ")))
                    port = line.mid(5).toInt();
                else if (line.startsWith(QLatin1String("pem ")))
                    pem = line.mid(4);
                else if (line == QLatin1String("ready"))
                    return;
            }
        }
        fail(QStringLiteral("the server did not start"));
    }
    ~Server()
    {
        m_process.closeWriteChannel();
        m_process.waitForFinished(10000);
    }
    Upload nextUpload()
    {
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(600000))
                fail(QStringLiteral("the server reported no upload"));
        }
        const QStringList words = QString::fromUtf8(m_process.readLine()).trimmed().split(QLatin1Char(' '));
        if (words.size() != 5 || words[0] != QLatin1String("upload"))
            fail(QStringLiteral("the server said: %1").arg(words.join(QLatin1Char(' '))));
        return {words[1], words[2].toLongLong(), words[4].toDouble()};
    }

    int port = 0;
    QString pem;

private:
    QProcess m_process;
};

// Runs a client process and returns its peak memory growth in KiB.
qint64 runClient(const QStringList& arguments)
{
    // Every client starts with nothing of an earlier one left to write back.
    ::sync();
    QProcess client;
    client.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    client.start(QCoreApplication::applicationFilePath(), arguments);
    if (!client.waitForFinished(900000) || client.exitCode() != 0)
        fail(QStringLiteral("the client %1 failed").arg(arguments.first()));
    const QString out = QString::fromUtf8(client.readAllStandardOutput());
    const int at = out.indexOf(QLatin1String("growth "));
    if (at < 0)
        fail(QStringLiteral("the client %1 reported no memory figure").arg(arguments.first()));
    return out.mid(at + 7).split(QLatin1Char('\n')).first().toLongLong();
}

int orchestrate(int rounds, const QList<int>& sizes)
{
    QTemporaryDir work(QDir::tempPath() + QStringLiteral("/vdi-bench-help-XXXXXX"));
    const QString serverDir = work.path() + QStringLiteral("/server");
    QDir().mkpath(serverDir);
    Server server(serverDir);
    std::printf("%-8s %-8s %14s %14s %8s %16s %16s %12s\n", "size", "round", "library MiB/s", "raw MiB/s", "ratio",
                "library KiB", "raw KiB", "diff KiB");
    for (int mebibytes : sizes) {
        const QString tree = work.path() + QStringLiteral("/terminal-%1").arg(mebibytes);
        makeTerminal(tree, mebibytes);
        std::vector<double> ratios, diffs, libRates, rawRates, libGrowths, rawGrowths;
        QString zip;
        const auto library = [&] {
            const qint64 growth = runClient({QStringLiteral("--library"), server.pem, QString::number(server.port), tree});
            const Upload upload = server.nextUpload();
            // The first upload is what the raw client sends, under a name of its own: two
            // requests within one second upload under the same name.
            const QString received = serverDir + QLatin1Char('/') + upload.name;
            if (zip.isEmpty()) {
                zip = work.path() + QStringLiteral("/reference-%1.zip").arg(mebibytes);
                QFile::rename(received, zip);
            } else {
                QFile::remove(received);
            }
            return std::make_pair(double(upload.bytes) / (1 << 20) / upload.seconds, double(growth));
        };
        const auto raw = [&] {
            const qint64 growth = runClient({QStringLiteral("--raw"), server.pem, QString::number(server.port), zip});
            const Upload upload = server.nextUpload();
            QFile::remove(serverDir + QLatin1Char('/') + upload.name);
            return std::make_pair(double(upload.bytes) / (1 << 20) / upload.seconds, double(growth));
        };
        library();  // makes the zip the raw client sends; not counted
        for (int round = 1; round <= rounds; ++round) {
            // Alternate the order, so that neither client always runs on a cooler machine.
            std::pair<double, double> l, r;
            if (round % 2) {
                l = library();
                r = raw();
            } else {
                r = raw();
                l = library();
            }
            libRates.push_back(l.first);
            rawRates.push_back(r.first);
            ratios.push_back(l.first / r.first);
            libGrowths.push_back(l.second);
            rawGrowths.push_back(r.second);
            diffs.push_back(l.second - r.second);
            std::printf("%-8s %-8d %14.1f %14.1f %8.3f %16.0f %16.0f %12.0f\n",
                        QStringLiteral("%1 MiB").arg(mebibytes).toUtf8().constData(), round, l.first, r.first,
                        l.first / r.first, l.second, r.second, l.second - r.second);
            std::fflush(stdout);
        }
        std::printf("%-8s %-8s %14.1f %14.1f %8.3f %16.0f %16.0f %12.0f\n",
                    QStringLiteral("%1 MiB").arg(mebibytes).toUtf8().constData(), "median", median(libRates),
                    median(rawRates), median(ratios), median(libGrowths), median(rawGrowths), median(diffs));
        QDir(tree).removeRecursively();
        QFile::remove(zip);
    }
    std::printf("Targets: throughput ratio >= 0.9; peak memory growth at most 4096 KiB above the raw client's.\n");
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() == 3 && args[1] == QLatin1String("--serve"))
        return serve(args[2]);
    if (args.size() == 5 && args[1] == QLatin1String("--library"))
        return libraryClient(args[2], args[3].toInt(), args[4]);
    if (args.size() == 5 && args[1] == QLatin1String("--raw"))
        return rawClient(args[2], args[3].toInt(), args[4]);

    int rounds = 3;
    QList<int> sizes{16, 256};
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--rounds"))
            rounds = std::max(1, args[i + 1].toInt());
        else if (args[i] == QLatin1String("--sizes")) {
            sizes.clear();
            for (const QString& size : args[i + 1].split(QLatin1Char(',')))
                sizes << size.toInt();
        }
    }
    return orchestrate(rounds, sizes);
}
