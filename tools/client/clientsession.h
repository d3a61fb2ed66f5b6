#pragma once

// One session of vdi-client: the facade, the wait for its answers, the road to a login, and
// what the process exits with.

#include "vdidesktopgrpcthread.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonObject>
#include <QString>
#include <QTimer>

#include <functional>

namespace vdiclient {

// What the process exits with; every failure is mapped to one of these in exitFor() alone.
enum Exit {
    ExitOk = 0,
    ExitUsage = 1,        // bad command line
    ExitConnection = 2,   // the server cannot be reached (or its certificate does not match)
    ExitRefused = 3,      // the server answered and said no (its error code and text)
    ExitServerError = 4,  // the call failed with another gRPC status
    ExitTimeout = 5,      // no answer within --timeout
};

struct Options {
    QString server = QStringLiteral("127.0.0.1");
    quint16 port = 443;
    QString pem;
    QString tlsName;  // the subject of the certificate in the pem: the name the library checks
    bool english = false;
    int timeoutMs = 35000;
    QString user;
    QString password;
    bool passwordGiven = false;  // by --password or VDI_PASSWORD (else asked at the login)
    QString gatewayUser;
    QString gatewayPassword;
    QString smsCode;
    QString ticket;
    QString ldapDomain;  // non-empty: log in through LDAP in that domain
    bool json = false;
    bool verbose = false;
};

// How one request ended: answered or not, the flag, the record's error; or, before anything
// was asked, what the command line lacks.
struct Outcome {
    bool answered = false;
    bool ok = false;
    tagErrorData error;
    QString usage;  // non-empty: a command-line error (exit code 1), this text

    int exitCode() const;
    // One line for people; with `english` no text of the library's Chinese table.
    QString describe(bool english) const;
    // The codes behind the failure for the JSON error: grpcStatus or serverCode.
    QJsonObject codes() const;
};

class Session {
public:
    explicit Session(const Options& options);
    ~Session();

    VdiDesktopGrpcThread& facade() { return m_facade; }
    const Options& options() const { return m_options; }

    // Runs the event loop until the facade emits `signal` (its arguments handed to `handler`)
    // or --timeout passes. The one place where the client waits.
    template <class... Args, class Handler>
    bool await(void (VdiDesktopGrpcThread::*signal)(Args...), Handler handler)
    {
        QEventLoop loop;
        m_waiting = &loop;
        bool answered = false;
        const QMetaObject::Connection connection = QObject::connect(&m_facade, signal, &loop, [&](Args... args) {
            if (answered)
                return;  // a second copy delivered in the same go (the branding comes twice)
            handler(args...);
            answered = true;
            loop.quit();
        });
        QTimer::singleShot(m_options.timeoutMs, &loop, &QEventLoop::quit);
        loop.exec();
        m_waiting = nullptr;
        QObject::disconnect(connection);
        return answered;
    }

    // The local identity, the TLS channels and the server type. False (with `*failure` set)
    // when the server type does not come.
    bool connectToServer(Outcome* failure);
    bool gatewayDeployment() const { return m_serverType == 1; }
    QJsonObject discovery() const { return m_discovery; }

    // connectToServer() and then the login of the options (password, SMS or LDAP; through the
    // gateway when the deployment has one). The reply holds the user's pools and desktops.
    Outcome login(LoginReply* reply);

private:
    Options m_options;
    VdiDesktopGrpcThread m_facade;
    int m_serverType = -1;
    QJsonObject m_discovery;
    QEventLoop* m_waiting = nullptr;  // the loop of await(), while it runs
};

// The library's critical lines go to stderr always, prefixed "vdi-client: "; the rest of its
// log only with --verbose. Without --verbose gRPC's own log is switched off too: call this
// before the first channel is made, when gRPC reads GRPC_VERBOSITY.
void installLogHandler(bool verbose);

// Asks on the terminal (no echo for a password); reads a line of stdin when it is no terminal.
// False when there is nothing to read (stdin at its end or closed).
bool prompt(const QString& question, bool secret, QString* answer);

} // namespace vdiclient
