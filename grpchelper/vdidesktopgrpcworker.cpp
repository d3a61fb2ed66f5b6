// The worker's connection frame: channels and stubs, call contexts, cancellation and the probe.
#include "vdidesktopgrpcworker.h"

#include <QFile>
#include <QHostAddress>
#include <QMetaEnum>
#include <QNetworkProxy>
#include <QSslCertificate>
#include <QTcpSocket>
#include <QThread>

#include "basesettings.h"
#include "vdidesktopgrpcworker_frame.h"

namespace {
const char* const kGatewayTokenKey = "gatewayaccesstoken";
const QString kClientLanguageKey = QStringLiteral("client-language");

// Our own rule: an IPv6 literal goes into the channel target in brackets ("[::1]:40955"), for
// gRPC reads what follows its last colon as the port. Names and IPv4 addresses go as they are.
QString channelTarget(const QString& host, int port)
{
    const bool bareIpv6 = QHostAddress(host).protocol() == QAbstractSocket::IPv6Protocol;
    return (bareIpv6 ? QLatin1Char('[') + host + QLatin1Char(']') : host) + QLatin1Char(':') + QString::number(port);
}
} // namespace

VdiDesktopGrpcWorker::VdiDesktopGrpcWorker(QObject* parent)
    : QObject(parent)
{
    connect(this, SIGNAL(signalGrpcErrorUnavailable()), this, SLOT(slotGrpcErrorUnavailable()));
}

VdiDesktopGrpcWorker::~VdiDesktopGrpcWorker()
{
    VDI_INFO << "VdiDesktopGrpcWorker::~VdiDesktopGrpcWorker";
    stopHeartTimer();
    stub.reset();
    stubGateway.reset();
    stubCommon.reset();
    stubUpload.reset();
}

void VdiDesktopGrpcWorker::initServerType(int serverType)
{
    m_serverType = serverType;
}

void VdiDesktopGrpcWorker::setTimeout(int seconds)
{
    m_timeoutSeconds = seconds;
}

template <class Service>
bool VdiDesktopGrpcWorker::rebuildStub(std::shared_ptr<typename Service::Stub>& slot,
                                       const char* caller, const char* readyText,
                                       const char* failureText)
{
    if (slot)
        slot.reset();
    VDI_LOG_IN(QtDebugMsg, caller) << readyText << m_target;
    auto channel = grpc::CreateCustomChannel(m_target.toStdString(), grpc::SslCredentials(m_sslOptions),
                                             m_channelArgs);
    slot = std::shared_ptr<typename Service::Stub>(Service::NewStub(channel));
    if (!slot) {
        VDI_LOG_IN(QtCriticalMsg, caller) << failureText << m_target;
        return false;
    }
    return true;
}

void VdiDesktopGrpcWorker::initConnection(QString pemFile, QString serverIP, ushort port, bool isEnglish)
{
    m_pemFile = pemFile;

    QFile file(pemFile);
    if (!file.open(QIODevice::ReadOnly)) {
        VDI_CRITICAL << pemFile << " pem file could not open.";
        return;
    }
    const QByteArray contents = file.readAll();
    file.close();
    // The text ends at the first NUL byte, as a C string would.
    const int nul = contents.indexOf('\0');
    m_sslOptions.pem_root_certs.clear();
    m_sslOptions.pem_root_certs.append(contents.constData(), nul < 0 ? contents.size() : nul);
    m_sslOptions.pem_private_key.clear();
    m_sslOptions.pem_cert_chain.clear();

    QString subjectName;
    const QList<QSslCertificate> certificates =
        QSslCertificate::fromPath(pemFile, QSsl::Pem, QSslCertificate::PatternSyntax::Wildcard);
    for (const QSslCertificate& certificate : certificates) {
        subjectName = certificate.subjectDisplayName();
        if (!subjectName.isEmpty())
            break;
    }
    if (subjectName.isEmpty()) {
        VDI_CRITICAL << "fail to get ssl certificate infomation for SimpleRPC, subject name is null. Pem file is :"
                     << pemFile;
        return;
    }

    m_host = serverIP;
    m_port = port;
    // Our own rule: the arguments hold one override, the subject's, replaced with it. Appended
    // at every connection (and every failed call reconnects), the list would grow for the
    // life of the worker.
    m_channelArgs = grpc::ChannelArguments();
    m_channelArgs.SetSslTargetNameOverride(subjectName.toStdString());
    m_target = channelTarget(serverIP, port);
    VDI_DEBUG << "target " << m_target << ", type = "
              << QMetaEnum::fromType<vdiinternal::BaseSettings::ServerType>().valueToKey(m_serverType);

    if (!rebuildStub<client::ClientCore>(stub, __FUNCTION__, "ready to create new stub for stub, info = ", "Failed to create new stub for stub, info = "))
        return;
    if (!rebuildStub<common::CommonCore>(stubCommon, __FUNCTION__, "ready to create new stub for stubCommon, info = ",
                                         "Failed to create new stub for stubCommon, info = "))
        return;
    if (m_serverType == vdiinternal::BaseSettings::Gateway)
        initGateway();

    m_isEnglish = isEnglish;
    m_language = isEnglish ? QStringLiteral("en") : QStringLiteral("zh");
    VDI_DEBUG << " grpcheader language: " << m_language;
}

void VdiDesktopGrpcWorker::initGateway()
{
    if (!rebuildStub<gateway::GatewayCore>(stubGateway, __FUNCTION__, "ready to create new stub for stubGateway, info = ",
                                           "Failed to create stub for stubGateway, info = "))
        return;
    // Our own rule: what the session holds stays while the file cannot give it back.
    if (gatewayInfoReadable()) {
        getGatewayAuthInfo(m_gatewayUser, m_gatewayPasswd);
        m_gatewayToken = getGatewayToken().toStdString();
    } else {
        VDI_WARNING << "gateway settings file unreadable or not saved, keeping this session's token";
    }
    rebuildStub<client::ClientCore>(stubUpload, __FUNCTION__, "ready to create new stub for stubUpload, info = ",
                                    "Failed to create new stub for stubUpload, info = ");
}

void VdiDesktopGrpcWorker::slotGrpcErrorUnavailable()
{
    VDI_INFO << " UNAVAILABLE";
    initConnection(m_pemFile, m_host, m_port, m_isEnglish);
}

void VdiDesktopGrpcWorker::buildClientContext(grpc::ClientContext* context)
{
    context->set_deadline(vdiframe::timespan(m_timeoutSeconds, 0));
    if (m_gatewayToken.empty())
        m_gatewayToken = gatewayTokenFromFile().toStdString();
    context->AddMetadata(kGatewayTokenKey, m_gatewayToken);
    context->AddMetadata(kClientLanguageKey.toStdString(), m_language.toStdString());
}

void VdiDesktopGrpcWorker::prepareContext(const RpcShape& shape, grpc::ClientContext& context)
{
    switch (shape.context) {
    case CallContext::Standard:
        buildClientContext(&context);
        break;
    case CallContext::FixedWithToken:
        context.set_deadline(vdiframe::timespan(10, 0));
        if (m_gatewayToken.empty())
            m_gatewayToken = gatewayTokenFromFile().toStdString();
        context.AddMetadata(kGatewayTokenKey, m_gatewayToken);
        break;
    case CallContext::Fixed:
        context.set_deadline(vdiframe::timespan(10, 0));
        break;
    case CallContext::Stepped: {
        // n below 8 counts fifths of a second, from 8 on whole seconds.
        const int n = *shape.retryDelay;
        const gpr_timespec span = n < 8 ? vdiframe::timespan(0, n * 200000000) : vdiframe::timespan(((n - 8) >> 3) + 1, 0);
        VDI_LOG_IN(QtInfoMsg, shape.function) << shape.deadlineText << qint64(span.tv_sec) << " timespec.tv_nsec " << span.tv_nsec;
        context.set_deadline(span);
        break;
    }
    case CallContext::Unlimited:
        break;
    }
}

bool VdiDesktopGrpcWorker::interruptionRequested(const char* function) const
{
    if (!QThread::currentThread()->isInterruptionRequested())
        return false;
    VDI_LOG_IN(QtDebugMsg, function) << "isInterruptionRequested";
    return true;
}

void VdiDesktopGrpcWorker::publishContext(const std::shared_ptr<grpc::ClientContext>& context)
{
    {
        std::lock_guard<std::mutex> lock(m_contextMutex);
        m_currentContext = context;
    }
    // A stop() that came between the entry check and this point found nothing to cancel.
    if (QThread::currentThread()->isInterruptionRequested())
        context->TryCancel();
}

void VdiDesktopGrpcWorker::statusCodeToErrorData(const grpc::Status& status, tagErrorData& errorData)
{
    if (interruptionRequested(__FUNCTION__))
        return;
    VDI_INFO << "checked grpc server was unavailable, restart now!";
    emit signalGrpcErrorUnavailable();
    VdiDesktopGrpcHelper::toErrorData(status, errorData);
}

bool VdiDesktopGrpcWorker::tryConnetRemoteHost()
{
    QTcpSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy);
    socket.connectToHost(m_host, m_port, QIODevice::ReadWrite, QAbstractSocket::IPv4Protocol);
    const bool connected = socket.waitForConnected(200);
    if (connected)
        VDI_INFO << "seccess to connect remote host: " << m_host;
    socket.disconnect();
    socket.close();
    return connected;
}

void VdiDesktopGrpcWorker::stop()
{
    VDI_DEBUG << "VdiDesktopGrpcWorker::stop";
    QObject::disconnect(this, nullptr, nullptr, nullptr);
    std::shared_ptr<grpc::ClientContext> context;
    {
        std::lock_guard<std::mutex> lock(m_contextMutex);
        context = m_currentContext.lock();
    }
    // The local owner keeps the context alive across the cancel, even if the handler returns.
    if (context) {
        VDI_DEBUG << "VdiDesktopGrpcWorker::stop try cancel";
        context->TryCancel();
    }
}
