#include "clientsession.h"

#include "vdidesktopgrpchelper.h"

#include <cstdio>
#include <string>

#include <termios.h>
#include <unistd.h>

namespace vdiclient {

namespace {

bool g_verbose = false;

void logHandler(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    // A call's trace line comes at the critical level too, though it tells of no failure.
    const bool critical = (type == QtCriticalMsg && !message.endsWith(QLatin1String(" TRACE"))) || type == QtFatalMsg;
    if (!critical && !g_verbose)
        return;
    const QByteArray line = ((critical ? QStringLiteral("vdi-client: ") : QString()) + message).toLocal8Bit() + '\n';
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
}

// English words for the gRPC status codes, where the library gives a Chinese text alone.
const char* const kStatusWords[] = {
    nullptr,
    "the call was cancelled",                   //  1 CANCELLED
    "an unknown error",                         //  2 UNKNOWN
    "the server found the request invalid",     //  3 INVALID_ARGUMENT
    "no answer in time",                        //  4 DEADLINE_EXCEEDED
    "no channel to the server, or not found",   //  5 NOT_FOUND
    "it exists already",                        //  6 ALREADY_EXISTS
    "permission denied",                        //  7 PERMISSION_DENIED
    "the server is out of resources",           //  8 RESOURCE_EXHAUSTED
    "the server is not in a state to do this",  //  9 FAILED_PRECONDITION
    "the call was aborted",                     // 10 ABORTED
    "out of range",                             // 11 OUT_OF_RANGE
    "the server does not offer this call",      // 12 UNIMPLEMENTED
    "an internal error of the server",          // 13 INTERNAL
    "the server cannot be reached",             // 14 UNAVAILABLE
    "data lost or damaged",                     // 15 DATA_LOSS
    "not authenticated",                        // 16 UNAUTHENTICATED
};

// A failed call carries the gRPC status code and the library's fixed Chinese text for it; a
// server's refusal carries its own code and texts.
bool isCallFailure(const tagErrorData& error)
{
    if (error.errorCode < 1 || error.errorCode > 16)
        return false;
    tagErrorData fixed;
    VdiDesktopGrpcHelper::toErrorData(grpc::Status(grpc::StatusCode(error.errorCode), std::string()), fixed);
    return fixed.errorMsgZh == error.errorMsgZh;
}

} // namespace

int Outcome::exitCode() const
{
    if (!usage.isEmpty())
        return ExitUsage;
    if (!answered)
        return ExitTimeout;
    if (ok)
        return ExitOk;
    if (isCallFailure(error)) {
        switch (error.errorCode) {
        case grpc::StatusCode::UNAVAILABLE:
            return ExitConnection;
        case grpc::StatusCode::DEADLINE_EXCEEDED:
            return ExitTimeout;
        default:
            return ExitServerError;
        }
    }
    // No channel at all (a pem file that could not be read): nothing was asked.
    if (error.errorCode == -1 && error.errorMsgZh.isEmpty() && error.errorMsgEn.isEmpty())
        return ExitConnection;
    return ExitRefused;
}

QString Outcome::describe(bool english) const
{
    const int code = exitCode();
    if (code == ExitOk)
        return QStringLiteral("ok");
    if (code == ExitUsage)
        return usage;
    if (!answered)
        return QStringLiteral("no answer within the time limit");
    if (isCallFailure(error)) {
        QString text = QStringLiteral("%1 (gRPC status %2").arg(QLatin1String(kStatusWords[error.errorCode])).arg(error.errorCode);
        if (!error.errorMsgEn.isEmpty())
            text += QStringLiteral(": ") + error.errorMsgEn;
        text += QLatin1Char(')');
        return english ? text : QStringLiteral("%1 / %2").arg(text, error.errorMsgZh);
    }
    if (code == ExitConnection)
        return QStringLiteral("no connection to the server (check the pem file; --verbose shows why)");
    QString text = error.errorMsgEn.isEmpty() ? error.errorMsgZh : error.errorMsgEn;
    if (!english && !error.errorMsgEn.isEmpty() && !error.errorMsgZh.isEmpty())
        text = QStringLiteral("%1 / %2").arg(error.errorMsgZh, error.errorMsgEn);
    return QStringLiteral("refused by the server, code %1: %2").arg(error.errorCode).arg(text);
}

QJsonObject Outcome::codes() const
{
    if (exitCode() == ExitOk || !usage.isEmpty() || !answered)
        return {};
    if (isCallFailure(error))
        return {{QStringLiteral("grpcStatus"), error.errorCode}};
    if (error.errorCode != -1)
        return {{QStringLiteral("serverCode"), error.errorCode}};
    return {};
}

Session::Session(const Options& options)
    : m_options(options)
{
    tagBaseInfo base;
    base.deviceName = QStringLiteral("vdi-client");
    base.clientType = QStringLiteral("1");
    m_facade.initBaseInfoParameter(base);
    tagExtendInfo extend;
    extend.clientVersion = QStringLiteral(VDI_CLIENT_VERSION);
    extend.osType = QStringLiteral("linux");
    m_facade.initExtendInfoParameter(extend);
    m_facade.setStrictRedaction(true);  // --verbose shows the library's log: no secret in it
}

Session::~Session()
{
    m_facade.stop();
}

bool Session::connectToServer(Outcome* failure)
{
    if (m_serverType != -1)
        return true;
    m_facade.initDeviceInfo(m_options.server, m_options.port);
    await(&VdiDesktopGrpcThread::deviceNetworkInfo, [this](QString ip, QString mac, bool found) {
        // Without a route to the server the identity still needs an address and a MAC.
        m_facade.setLocalIP(found ? ip : QStringLiteral("127.0.0.1"));
        m_facade.setLocalMAC(found ? mac : QStringLiteral("02:00:00:00:00:01"));
    });
    m_discovery.insert(QStringLiteral("localIp"), m_facade.getLocalIP());
    m_discovery.insert(QStringLiteral("localMac"), m_facade.getLocalMAC());
    m_discovery.insert(QStringLiteral("tlsName"), m_options.tlsName);

    m_facade.initServerType(0);
    m_facade.initConnection(m_options.pem, m_options.server, m_options.port, m_options.english);
    Outcome outcome;
    m_facade.queryServerTypeInfo();
    outcome.answered = await(&VdiDesktopGrpcThread::queryServerTypeInfoResult, [&](ServerTypeInfoResp reply, bool ok) {
        outcome.ok = ok;
        outcome.error = reply.error;
        if (ok)
            m_serverType = reply.serverType;
    });
    if (outcome.exitCode() != ExitOk) {
        *failure = outcome;
        return false;
    }
    m_discovery.insert(QStringLiteral("serverType"),
                       m_serverType == 1 ? QStringLiteral("gateway") : QStringLiteral("controller"));
    return true;
}

// Nothing to read where a credential was to be asked: the option that gives it.
static Outcome missing(const QString& what, const QString& give)
{
    Outcome outcome;
    outcome.usage = QStringLiteral("nothing to read for %1: give %2").arg(what, give);
    return outcome;
}

Outcome Session::login(LoginReply* reply)
{
    if (!m_options.passwordGiven) {
        if (!prompt(QStringLiteral("Password for %1: ").arg(m_options.user), true, &m_options.password))
            return missing(QStringLiteral("the password of \"%1\"").arg(m_options.user),
                           QStringLiteral("--password or VDI_PASSWORD"));
        m_options.passwordGiven = true;
    }
    Outcome outcome;
    if (!connectToServer(&outcome))
        return outcome;

    // Behind a gateway without saved credentials the library asks once; a second question
    // means that the answer was refused, and the login's own answer says so.
    bool asked = false;
    Outcome unanswered;
    const QMetaObject::Connection askConnection =
        QObject::connect(&m_facade, &VdiDesktopGrpcThread::inputGatewayAuthInfo, &m_facade, [&] {
            if (asked)
                return;
            asked = true;
            QString user = m_options.gatewayUser;
            QString password = m_options.gatewayPassword;
            if (user.isEmpty() && !prompt(QStringLiteral("Gateway user: "), false, &user))
                unanswered = missing(QStringLiteral("the access gateway's user"), QStringLiteral("--gateway-user"));
            else if (password.isEmpty() && !prompt(QStringLiteral("Gateway password: "), true, &password))
                unanswered = missing(QStringLiteral("the access gateway's password"),
                                     QStringLiteral("--gateway-password or VDI_GATEWAY_PASSWORD"));
            if (unanswered.usage.isEmpty())
                emit m_facade.loginGateway(user, password);
            else if (m_waiting)
                m_waiting->quit();
        });

    if (!m_options.ldapDomain.isEmpty()) {
        m_facade.checkAndSaveLdapPasswd(m_options.user, m_options.password, m_options.ldapDomain);
        Outcome check;
        check.answered = await(&VdiDesktopGrpcThread::signalCheckAndSaveLdapPasswdResult,
                               [&](const tagCheckPasswordResp& resp, bool ok) {
                                   check.ok = ok;
                                   check.error = resp.error;
                               });
        if (check.exitCode() != ExitOk) {
            QObject::disconnect(askConnection);
            return check;
        }
        // On success the library logs in by itself.
    } else if (!m_options.smsCode.isEmpty()) {
        m_facade.loginSMS(m_options.user, m_options.password, m_options.smsCode, m_options.ticket);
    } else {
        m_facade.login(m_options.user, m_options.password, QStringLiteral("0"));
    }
    outcome.answered = await(&VdiDesktopGrpcThread::loginResult, [&](LoginReply answer, bool ok) {
        outcome.ok = ok;
        outcome.error = answer.error;
        *reply = answer;
    });
    QObject::disconnect(askConnection);
    return unanswered.usage.isEmpty() ? outcome : unanswered;
}

void installLogHandler(bool verbose)
{
    g_verbose = verbose;
    if (!verbose)
        qputenv("GRPC_VERBOSITY", "NONE");
    qInstallMessageHandler(logHandler);
}

bool prompt(const QString& question, bool secret, QString* answer)
{
    std::fputs(question.toLocal8Bit().constData(), stderr);
    std::fflush(stderr);
    const bool terminal = ::isatty(STDIN_FILENO);
    termios saved{};
    if (secret && terminal) {
        ::tcgetattr(STDIN_FILENO, &saved);
        termios quiet = saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
    }
    // One stdio stream for every question, so that answers piped in one go are read in turn.
    std::string read;
    bool got = false;
    char chunk[256];
    while (std::fgets(chunk, sizeof chunk, stdin)) {
        got = true;
        read += chunk;
        if (!read.empty() && read.back() == '\n')
            break;
    }
    while (!read.empty() && (read.back() == '\n' || read.back() == '\r'))
        read.pop_back();
    *answer = QString::fromLocal8Bit(read.c_str());
    if (secret && terminal)
        ::tcsetattr(STDIN_FILENO, TCSANOW, &saved);
    // The answer ends the line only where the terminal echoed it.
    if (secret || !terminal || !got)
        std::fputc('\n', stderr);
    return got;
}

} // namespace vdiclient
