#include "doctor.h"

#include "report.h"

#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QHostInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkInterface>
#include <QNetworkProxy>
#include <QSettings>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QStandardPaths>
#include <QTcpSocket>

#include <grpcpp/support/status_code_enum.h>

#include <cstdio>

namespace vdiclient {

namespace {

// What one step found: its line of plain words, for a failure what to do next, and the values
// behind the words for --json.
struct Step {
    bool tried = false;
    bool ok = false;
    QString words;
    QString advice;
    QJsonObject details;
};

Step passed(const QString& words, const QJsonObject& details)
{
    return Step{true, true, words, QString(), details};
}

Step failed(const QString& words, const QString& advice, const QJsonObject& details)
{
    return Step{true, false, words, advice, details};
}

// What the steps learn and hand on to the next ones.
struct Road {
    const Options& options;
    Session& session;
    QList<QSslCertificate> pem;  // the certificates in the pem file
    QString tlsName;             // the subject of the pem's certificate: the name the library checks
    QList<QHostAddress> addresses;
    QHostAddress reached;        // the address that accepted the TCP connection
};

// ---- Words for certificates, times and names -------------------------------------------------

QString when(const QDateTime& time)
{
    return time.toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm 'UTC'"));
}

QString span(qint64 seconds)
{
    seconds = qAbs(seconds);
    if (seconds >= 2 * 86400)
        return QStringLiteral("%1 days").arg(seconds / 86400);
    if (seconds >= 2 * 3600)
        return QStringLiteral("%1 hours").arg(seconds / 3600);
    if (seconds >= 120)
        return QStringLiteral("%1 minutes").arg(seconds / 60);
    return QStringLiteral("%1 seconds").arg(seconds);
}

QString milliseconds(qint64 nanoseconds)
{
    return QString::number(double(nanoseconds) / 1e6, 'f', 1);
}

QString fingerprint(const QSslCertificate& certificate)
{
    return QString::fromLatin1(certificate.digest(QCryptographicHash::Sha256).toHex(':').toUpper());
}

// The first eight bytes, enough to tell two certificates apart by eye.
QString shortFingerprint(const QSslCertificate& certificate)
{
    return fingerprint(certificate).left(23) + QStringLiteral("...");
}

QString commonName(const QSslCertificate& certificate)
{
    return certificate.subjectInfo(QSslCertificate::CommonName).value(0);
}

// The alternative names that count for the TLS name: DNS and IP address entries, and e-mail ones,
// which match no name but, like the others, keep gRPC from looking at the common name.
QStringList alternativeNames(const QSslCertificate& certificate)
{
    const auto names = certificate.subjectAlternativeNames();
    return names.values(QSsl::DnsEntry) + names.values(QSsl::IpAddressEntry) + names.values(QSsl::EmailEntry);
}

// "CN=vdi-ctl.example, SAN vdi-ctl.example, self-signed".
QString summary(const QSslCertificate& certificate)
{
    const QString cn = commonName(certificate);
    QString text = cn.isEmpty() ? QStringLiteral("no CN (subject \"%1\")").arg(certificate.subjectDisplayName())
                                : QStringLiteral("CN=") + cn;
    const QStringList alternatives = alternativeNames(certificate);
    text += alternatives.isEmpty() ? QStringLiteral(", no SAN") : QStringLiteral(", SAN ") + alternatives.join(QStringLiteral(", "));
    return text + (certificate.isSelfSigned() ? QStringLiteral(", self-signed")
                                              : QStringLiteral(", issued by ") + certificate.issuerDisplayName());
}

QJsonObject certificateDetails(const QSslCertificate& certificate)
{
    return {{QStringLiteral("subject"), certificate.subjectDisplayName()},
            {QStringLiteral("commonName"), commonName(certificate)},
            {QStringLiteral("alternativeNames"), QJsonArray::fromStringList(alternativeNames(certificate))},
            {QStringLiteral("issuer"), certificate.issuerDisplayName()},
            {QStringLiteral("selfSigned"), certificate.isSelfSigned()},
            {QStringLiteral("notBefore"), certificate.effectiveDate().toUTC().toString(Qt::ISODate)},
            {QStringLiteral("notAfter"), certificate.expiryDate().toUTC().toString(Qt::ISODate)},
            {QStringLiteral("sha256"), fingerprint(certificate)}};
}

QJsonArray certificatesDetails(const QList<QSslCertificate>& certificates)
{
    QJsonArray array;
    for (const QSslCertificate& certificate : certificates)
        array.append(certificateDetails(certificate));
    return array;
}

// What is wrong with the certificate's dates by this terminal's clock; empty when nothing is.
QString datesProblem(const QSslCertificate& certificate, const QDateTime& now)
{
    if (now > certificate.expiryDate())
        return QStringLiteral("expired on %1, %2 before this terminal's clock (%3)")
            .arg(when(certificate.expiryDate()), span(certificate.expiryDate().secsTo(now)), when(now));
    if (now < certificate.effectiveDate())
        return QStringLiteral("not valid before %1, %2 after this terminal's clock (%3)")
            .arg(when(certificate.effectiveDate()), span(now.secsTo(certificate.effectiveDate())), when(now));
    return QString();
}

// gRPC's rule for one name of the certificate: equal but for case and a final dot, or "*.rest"
// standing for one label more than `rest`, where `rest` is no top-level domain.
bool entryMatches(QString entry, QString name)
{
    if (name.endsWith(QLatin1Char('.')))
        name.chop(1);
    if (entry.endsWith(QLatin1Char('.')))
        entry.chop(1);
    if (entry.isEmpty())
        return false;
    if (entry.compare(name, Qt::CaseInsensitive) == 0)
        return true;
    if (!entry.startsWith(QLatin1String("*.")) || entry.size() < 3)
        return false;
    const int dot = name.indexOf(QLatin1Char('.'));
    if (dot < 0 || dot >= name.size() - 2)
        return false;
    const QString rest = name.mid(dot + 1);
    const int next = rest.indexOf(QLatin1Char('.'));
    if (next < 0 || next == rest.size() - 1)
        return false;
    return rest.compare(entry.mid(2), Qt::CaseInsensitive) == 0;
}

// Whether gRPC finds `name` in the server's certificate: among the alternative names, and in
// the common name only when there are none, never for a name that looks like an IP address.
// Qt's own check always looks at the common name too, so it cannot tell.
bool grpcNameMatches(const QSslCertificate& certificate, const QString& name)
{
    const bool address = !QHostAddress(name).isNull();
    const QStringList alternatives = alternativeNames(certificate);
    for (const QString& entry : alternatives) {
        if (address ? entry == name : entryMatches(entry, name))
            return true;
    }
    return alternatives.isEmpty() && !address && entryMatches(commonName(certificate), name);
}

// The proxy that gRPC sends its calls through (from the first of its variables that is set).
QString grpcProxy(QString* variable)
{
    for (const char* name : {"grpc_proxy", "https_proxy", "http_proxy"}) {
        const QString value = qEnvironmentVariable(name);
        if (!value.isEmpty()) {
            *variable = QLatin1String(name);
            return value;
        }
    }
    return QString();
}

QString interfaceOf(const QString& ip)
{
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& networkInterface : interfaces) {
        const QList<QNetworkAddressEntry> entries = networkInterface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries) {
            if (entry.ip().toString() == ip)
                return networkInterface.humanReadableName();
        }
    }
    return QString();
}

// The gateway token that an earlier login saved, where the library keeps it.
QString savedGatewayToken()
{
    QSettings settings(QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) +
                           QStringLiteral("/gateway/gatewaySettings.ini"),
                       QSettings::IniFormat);
    return settings.value(QStringLiteral("GATEWAYINFO/token")).toString();
}

// ---- The steps ----------------------------------------------------------------------------------

const char kCopyCertificate[] = "copy the server's certificate (PEM) to the terminal and give its path with --pem";

Step checkPem(Road& road)
{
    const QString path = road.options.pem;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return failed(QStringLiteral("cannot read \"%1\": %2").arg(path, file.errorString()),
                      QLatin1String(kCopyCertificate), {{QStringLiteral("path"), path}});
    const QByteArray data = file.readAll();
    road.pem = QSslCertificate::fromData(data, QSsl::Pem);
    if (road.pem.isEmpty()) {
        if (!QSslCertificate::fromData(data, QSsl::Der).isEmpty())
            return failed(QStringLiteral("\"%1\" holds a certificate in DER form, not PEM").arg(path),
                          QStringLiteral("convert it (openssl x509 -inform der -in %1 -out server.pem) and give that with --pem")
                              .arg(path),
                          {{QStringLiteral("path"), path}});
        return failed(QStringLiteral("\"%1\" holds no PEM certificate (no \"BEGIN CERTIFICATE\" block)").arg(path),
                      QLatin1String(kCopyCertificate), {{QStringLiteral("path"), path}});
    }
    QJsonObject details{{QStringLiteral("path"), path}, {QStringLiteral("certificates"), certificatesDetails(road.pem)}};
    const QSslCertificate* named = namedCertificate(road.pem);
    if (!named)
        return failed(QStringLiteral("no certificate in \"%1\" has a subject: the library takes the subject as the "
                                     "name to check and makes no channel without one")
                          .arg(path),
                      QStringLiteral("give the server's own certificate, which names the server in its subject (CN)"),
                      details);
    road.tlsName = named->subjectDisplayName();
    details.insert(QStringLiteral("tlsName"), road.tlsName);
    // Dates out of the terminal's clock are told here and judged at the TLS step, on the
    // certificate that the server presents.
    const QString problem = datesProblem(*named, QDateTime::currentDateTimeUtc());
    const QString count = road.pem.size() > 1 ? QStringLiteral(" (%1 certificates)").arg(road.pem.size()) : QString();
    return passed(QStringLiteral("%1%2: %3, %4, SHA-256 %5; the name checked is \"%6\"")
                      .arg(path, count, summary(*named),
                           problem.isEmpty() ? QStringLiteral("valid until ") + when(named->expiryDate()) : problem,
                           shortFingerprint(*named), road.tlsName),
                  details);
}

Step checkAddress(Road& road)
{
    const Options& options = road.options;
    const QHostAddress literal(options.server);
    QJsonObject details{{QStringLiteral("server"), options.server}};
    QString found;
    if (!literal.isNull()) {
        road.addresses = {literal};
        const bool v6 = literal.protocol() == QAbstractSocket::IPv6Protocol;
        details.insert(QStringLiteral("kind"), v6 ? QStringLiteral("ipv6") : QStringLiteral("ipv4"));
        found = QStringLiteral("%1 is an %2 address").arg(options.server, v6 ? QStringLiteral("IPv6") : QStringLiteral("IPv4"));
    } else {
        details.insert(QStringLiteral("kind"), QStringLiteral("name"));
        QEventLoop loop;
        QHostInfo info;
        bool answered = false;
        const int lookup = QHostInfo::lookupHost(options.server, &loop, [&](const QHostInfo& answer) {
            info = answer;
            answered = true;
            loop.quit();
        });
        QTimer::singleShot(options.timeoutMs, &loop, &QEventLoop::quit);
        loop.exec();
        if (!answered) {
            QHostInfo::abortHostLookup(lookup);
            return failed(QStringLiteral("no answer from the name service for \"%1\" within %2 s")
                              .arg(options.server)
                              .arg(options.timeoutMs / 1000),
                          QStringLiteral("check the terminal's DNS server (/etc/resolv.conf), or give the server's "
                                         "address with --server"),
                          details);
        }
        road.addresses = info.addresses();
        if (info.error() != QHostInfo::NoError || road.addresses.isEmpty())
            return failed(QStringLiteral("\"%1\" does not resolve: %2").arg(options.server, info.errorString()),
                          QStringLiteral("check the name in --server and the terminal's DNS server (/etc/resolv.conf), "
                                         "or give the server's address"),
                          details);
    }
    QStringList addresses;
    for (const QHostAddress& address : qAsConst(road.addresses))
        addresses << address.toString();
    details.insert(QStringLiteral("addresses"), QJsonArray::fromStringList(addresses));
    if (found.isEmpty())
        found = QStringLiteral("\"%1\" resolves to %2").arg(options.server, addresses.join(QStringLiteral(", ")));

    // The library's own answer: the local address and MAC that this terminal is known by.
    QString ip, mac;
    bool local = false;
    road.session.facade().initDeviceInfo(options.server, options.port);
    road.session.await(&VdiDesktopGrpcThread::deviceNetworkInfo, [&](QString i, QString m, bool status) {
        ip = i;
        mac = m;
        local = status;
    });
    const QString networkInterface = interfaceOf(ip);
    details.insert(QStringLiteral("localAddress"), ip);
    details.insert(QStringLiteral("localMac"), mac);
    details.insert(QStringLiteral("interface"), networkInterface);
    if (!local)
        return passed(found + QStringLiteral("; the library finds no local IPv4 address to name this terminal by"), details);
    return passed(QStringLiteral("%1; the library names this terminal %2 (%3MAC %4)")
                      .arg(found, ip, networkInterface.isEmpty() ? QString() : networkInterface + QStringLiteral(", "), mac),
                  details);
}

Step checkPort(Road& road)
{
    const Options& options = road.options;
    QString variable;
    const QString proxy = grpcProxy(&variable);
    QJsonObject details{{QStringLiteral("port"), options.port}};
    if (!proxy.isEmpty())
        details.insert(QStringLiteral("grpcProxy"), proxy);
    Step first;
    QJsonArray tries;
    // Each address in turn, as gRPC tries them.
    for (const QHostAddress& address : qAsConst(road.addresses)) {
        QTcpSocket socket;
        socket.setProxy(QNetworkProxy::NoProxy);
        QElapsedTimer clock;
        clock.start();
        socket.connectToHost(address, options.port);
        const bool connected = socket.waitForConnected(options.timeoutMs);
        const QString time = milliseconds(clock.nsecsElapsed());
        const QString where = address.protocol() == QAbstractSocket::IPv6Protocol
                                  ? QStringLiteral("[%1]:%2").arg(address.toString()).arg(options.port)
                                  : QStringLiteral("%1:%2").arg(address.toString()).arg(options.port);
        tries.append(QJsonObject{{QStringLiteral("address"), address.toString()},
                                 {QStringLiteral("connected"), connected},
                                 {QStringLiteral("error"), connected ? QString() : socket.errorString()},
                                 {QStringLiteral("milliseconds"), time.toDouble()}});
        details.insert(QStringLiteral("tries"), tries);
        if (connected) {
            road.reached = address;
            QString words = QStringLiteral("%1 accepts TCP connections (%2 ms)").arg(where, time);
            if (!proxy.isEmpty())
                words += QStringLiteral("; note: gRPC goes through the proxy %1 (%2) unless no_grpc_proxy or no_proxy "
                                        "names the server")
                             .arg(proxy, variable);
            return passed(words, details);
        }
        if (first.tried)
            continue;
        switch (socket.error()) {
        case QAbstractSocket::ConnectionRefusedError:
            first = failed(QStringLiteral("%1 refused the connection (%2 ms): nothing listens on port %3")
                               .arg(where, time)
                               .arg(options.port),
                           QStringLiteral("check --port (the controller's or gateway's gRPC port) and that its service "
                                          "runs; a firewall that rejects the port looks the same"),
                           details);
            break;
        case QAbstractSocket::SocketTimeoutError:
            first = failed(QStringLiteral("no answer from %1 within %2 s: the connection timed out")
                               .arg(where)
                               .arg(options.timeoutMs / 1000),
                           QStringLiteral("a firewall drops the packets, or the server is down: check both, and the "
                                          "address"),
                           details);
            break;
        default:
            first = failed(QStringLiteral("%1 is unreachable (%2 ms): %3").arg(where, time, socket.errorString()),
                           QStringLiteral("this terminal has no route to the server: check its network settings "
                                          "(address, gateway) and its cable or Wi-Fi"),
                           details);
        }
    }
    first.details = details;
    return first;
}

// A certificate out of this terminal's clock: `words` say which and how far.
Step outOfDate(const QString& words, const QSslCertificate& certificate, const QJsonObject& details)
{
    return failed(words,
                  QDateTime::currentDateTimeUtc() > certificate.expiryDate()
                      ? QStringLiteral("renew the server's certificate and copy the new one to the terminal; if this "
                                       "terminal's clock is wrong, set it (NTP)")
                      : QStringLiteral("this terminal's clock is probably behind: set it (NTP); else the certificate "
                                       "was made on a clock that is ahead"),
                  details);
}

Step checkTls(Road& road)
{
    const Options& options = road.options;
    QJsonObject details{{QStringLiteral("nameChecked"), road.tlsName}};
    if (!QSslSocket::supportsSsl())
        return failed(QStringLiteral("Qt finds no TLS library on this terminal (built with %1)")
                          .arg(QSslSocket::sslLibraryBuildVersionString()),
                      QStringLiteral("install the OpenSSL library that Qt was built with"), details);
    QSslSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy);
    QSslConfiguration configuration = socket.sslConfiguration();
    configuration.setCaCertificates(road.pem);  // the pem alone, as gRPC trusts it
    configuration.setPeerVerifyMode(QSslSocket::VerifyPeer);
    configuration.setProtocol(QSsl::TlsV1_2OrLater);
    configuration.setAllowedNextProtocols({QByteArrayLiteral("h2")});
    socket.setSslConfiguration(configuration);
    QList<QSslError> errors;
    bool connected = false;
    QObject::connect(&socket, &QSslSocket::connected, [&connected] { connected = true; });
    QObject::connect(&socket, qOverload<const QList<QSslError>&>(&QSslSocket::sslErrors),
                     [&](const QList<QSslError>& found) {
                         errors = found;
                         socket.ignoreSslErrors();  // the handshake goes on: the chain is judged below
                     });
    const QString where = QStringLiteral("%1 port %2").arg(road.reached.toString()).arg(options.port);
    socket.connectToHostEncrypted(road.reached.toString(), options.port, road.tlsName);
    if (!socket.waitForEncrypted(options.timeoutMs)) {
        QString words;
        if (connected && socket.error() == QAbstractSocket::SocketTimeoutError)
            words = QStringLiteral("the server at %1 accepted TCP but did not answer the TLS handshake within %2 s")
                        .arg(where)
                        .arg(options.timeoutMs / 1000);
        else if (socket.error() == QAbstractSocket::SslHandshakeFailedError)
            words = QStringLiteral("the server at %1 answered, but not with a TLS handshake that gRPC accepts: %2")
                        .arg(where, socket.errorString());
        else
            words = QStringLiteral("the server at %1 ended the TLS handshake: %2").arg(where, socket.errorString());
        return failed(words,
                      QStringLiteral("something other than the controller's TLS service listens on port %1, or a proxy "
                                     "or firewall holds the connection: check --port and what runs there")
                          .arg(options.port),
                      details);
    }
    const QList<QSslCertificate> chain = socket.peerCertificateChain();
    const QSslCertificate server = socket.peerCertificate();
    details.insert(QStringLiteral("protocol"), socket.sessionProtocol() == QSsl::TlsV1_3 ? QStringLiteral("TLS 1.3")
                                                                                           : QStringLiteral("TLS 1.2"));
    details.insert(QStringLiteral("chain"), certificatesDetails(chain));
    const QString presented = QStringLiteral("the server presents %1 (SHA-256 %2)").arg(summary(server), shortFingerprint(server));
    const QDateTime now = QDateTime::currentDateTimeUtc();
    details.insert(QStringLiteral("clock"), now.toString(Qt::ISODate));
    for (const QSslCertificate& certificate : chain) {
        const QString problem = datesProblem(certificate, now);
        if (!problem.isEmpty())
            return outOfDate(QStringLiteral("%1; %2 %3")
                                 .arg(presented,
                                      certificate == server
                                          ? QStringLiteral("the server's certificate")
                                          : QStringLiteral("the certificate \"%1\" of its chain").arg(certificate.subjectDisplayName()),
                                      problem),
                             certificate, details);
    }

    QStringList trustErrors;
    for (const QSslError& error : qAsConst(errors)) {
        if (error.error() != QSslError::HostNameMismatch)  // gRPC's own rule is checked below
            trustErrors << error.errorString();
    }
    details.insert(QStringLiteral("pemVerifies"), trustErrors.isEmpty());
    if (!trustErrors.isEmpty()) {
        details.insert(QStringLiteral("verifyErrors"), QJsonArray::fromStringList(trustErrors));
        // Qt leaves an expired certificate of the pem out of its trust, where gRPC finds it and
        // calls it expired.
        for (const QSslCertificate& mine : qAsConst(road.pem)) {
            const QString problem = datesProblem(mine, now);
            if (!problem.isEmpty())
                return outOfDate(QStringLiteral("%1; the certificate \"%2\" of your pem %3")
                                     .arg(presented, mine.subjectDisplayName(), problem),
                                 mine, details);
        }
        bool pemInChain = false;
        for (const QSslCertificate& mine : qAsConst(road.pem))
            pemInChain = pemInChain || chain.contains(mine);
        if (!pemInChain)
            return failed(QStringLiteral("%1; your pem is another certificate (%2, SHA-256 %3) and does not verify it")
                              .arg(presented, summary(road.pem.first()), shortFingerprint(road.pem.first())),
                          QStringLiteral("copy the server's certificate (SHA-256 %1) to the terminal and give it with "
                                         "--pem; \"openssl s_client -connect %2:%3 -showcerts\" prints it")
                              .arg(fingerprint(server), road.reached.toString())
                              .arg(options.port),
                          details);
        return failed(QStringLiteral("%1; your pem holds a certificate of its chain but does not verify it: %2")
                          .arg(presented, trustErrors.join(QStringLiteral("; "))),
                      QStringLiteral("add the certificate that issued the server's (%1) to the pem")
                          .arg(server.issuerDisplayName()),
                      details);
    }

    const bool matches = grpcNameMatches(server, road.tlsName);
    details.insert(QStringLiteral("nameMatches"), matches);
    if (!matches) {
        const bool subjectOnly = !alternativeNames(server).isEmpty() && entryMatches(commonName(server), road.tlsName);
        return failed(QStringLiteral("%1; the name that the library checks, \"%2\" (your pem's subject), is not among its "
                                     "names%3: gRPC says only \"No match found for server name\"")
                          .arg(presented, road.tlsName,
                               subjectOnly ? QStringLiteral(" (with alternative names present gRPC does not look at the CN)")
                                           : QString()),
                      subjectOnly ? QStringLiteral("reissue the server's certificate with \"%1\" among its alternative "
                                                   "names (subjectAltName DNS:%1) and copy it to the terminal")
                                        .arg(road.tlsName)
                                  : QStringLiteral("give the server's own certificate with --pem, or reissue the server's "
                                                   "certificate so that it names \"%1\"")
                                        .arg(road.tlsName),
                      details);
    }
    return passed(QStringLiteral("%1; your pem verifies it and the name \"%2\" matches (%3)")
                      .arg(presented, road.tlsName, details.value(QStringLiteral("protocol")).toString()),
                  details);
}

// Behind a gateway: whether the gateway still lets the saved token through. The library asks
// the gateway's auth status only inside a login, so a call that the gateway guards answers it:
// the login options, which the controller gives behind a gateway only with a valid token.
QString checkToken(Road& road, QJsonObject* details)
{
    if (savedGatewayToken().isEmpty()) {
        details->insert(QStringLiteral("token"), QStringLiteral("none"));
        return QStringLiteral("no saved token (the first login asks for the gateway's user and password)");
    }
    Outcome outcome;
    road.session.facade().queryLoginConfig();
    outcome.answered = road.session.await(&VdiDesktopGrpcThread::signalQueryLoginConfigResult,
                                          [&](const LoginConfigResp& reply, bool ok) {
                                              outcome.ok = ok;
                                              outcome.error = reply.error;
                                          });
    if (outcome.exitCode() == ExitOk) {
        details->insert(QStringLiteral("token"), QStringLiteral("accepted"));
        return QStringLiteral("saved token accepted");
    }
    if (outcome.codes().value(QStringLiteral("grpcStatus")).toInt() == grpc::StatusCode::UNAUTHENTICATED) {
        details->insert(QStringLiteral("token"), QStringLiteral("refused"));
        return QStringLiteral("saved token refused (the next login logs in at the gateway again)");
    }
    details->insert(QStringLiteral("token"), QStringLiteral("unchecked"));
    return QStringLiteral("saved token not checked: %1").arg(outcome.describe(road.options.english));
}

Step checkService(Road& road)
{
    QElapsedTimer clock;
    clock.start();
    // connectToServer() finds the local address again first: the query's time starts after it.
    const QMetaObject::Connection restart = QObject::connect(
        &road.session.facade(), &VdiDesktopGrpcThread::deviceNetworkInfo, [&clock] { clock.start(); });
    Outcome failure;
    const bool answered = road.session.connectToServer(&failure);
    QObject::disconnect(restart);
    const QString time = milliseconds(clock.nsecsElapsed());
    QJsonObject details{{QStringLiteral("milliseconds"), time.toDouble()}};
    if (!answered) {
        const QJsonObject codes = failure.codes();
        for (auto it = codes.begin(); it != codes.end(); ++it)
            details.insert(it.key(), it.value());
        const int status = codes.value(QStringLiteral("grpcStatus")).toInt();
        QString advice = QStringLiteral("--verbose shows the library's and gRPC's own words");
        if (failure.exitCode() == ExitTimeout)
            advice = QStringLiteral("the server is slow or something between holds the calls: try again; ") + advice;
        else if (status == grpc::StatusCode::UNAVAILABLE)
            advice = QStringLiteral("TLS works but gRPC gets no channel: check that --port is the gRPC port and that no "
                                    "proxy (grpc_proxy, https_proxy) is in the way; ") + advice;
        else if (status == grpc::StatusCode::UNIMPLEMENTED)
            advice = QStringLiteral("the server does not know the call: it is no controller or access gateway of this "
                                    "kind; check --port");
        return failed(QStringLiteral("the server-type query failed after %1 ms: %2")
                          .arg(time, failure.describe(road.options.english)),
                      advice, details);
    }
    const bool gateway = road.session.gatewayDeployment();
    details.insert(QStringLiteral("serverType"), gateway ? QStringLiteral("gateway") : QStringLiteral("controller"));
    details.insert(QStringLiteral("status"), QStringLiteral("OK"));
    const QString words = QStringLiteral("%1 answered the server-type query in %2 ms (status OK)")
                              .arg(gateway ? QStringLiteral("an access gateway") : QStringLiteral("a controller"), time);
    return passed(gateway ? words + QStringLiteral("; ") + checkToken(road, &details) : words, details);
}

struct StepKind {
    const char* name;
    Step (*check)(Road&);
};

const StepKind kSteps[] = {
    {"pem file", checkPem}, {"address", checkAddress}, {"port", checkPort}, {"tls", checkTls}, {"service", checkService},
};

void print(const std::vector<Step>& steps, const QString& advice, bool json)
{
    QByteArray out;
    if (json) {
        QJsonArray array;
        for (size_t i = 0; i < steps.size(); ++i)
            array.append(QJsonObject{{QStringLiteral("name"), QLatin1String(kSteps[i].name)},
                                     {QStringLiteral("ok"), steps[i].ok},
                                     {QStringLiteral("tried"), steps[i].tried},
                                     {QStringLiteral("words"), steps[i].words},
                                     {QStringLiteral("details"), steps[i].details}});
        out = QJsonDocument(QJsonObject{{QStringLiteral("steps"), array},
                                        {QStringLiteral("advice"), advice.isEmpty() ? QJsonValue() : advice}})
                  .toJson(QJsonDocument::Indented);
    } else {
        QStringList lines;
        for (size_t i = 0; i < steps.size(); ++i) {
            const char* mark = steps[i].ok ? "[ ok ]" : steps[i].tried ? "[FAIL]" : "[ -- ]";
            lines << QStringLiteral("%1 %2: %3").arg(QLatin1String(mark), QLatin1String(kSteps[i].name), steps[i].words);
        }
        if (!advice.isEmpty())
            lines << QStringLiteral("what to do: ") + advice;
        out = (lines.join(QLatin1Char('\n')) + QLatin1Char('\n')).toLocal8Bit();
    }
    std::fwrite(out.constData(), 1, size_t(out.size()), stdout);
    std::fflush(stdout);
}

} // namespace

const QSslCertificate* namedCertificate(const QList<QSslCertificate>& pem)
{
    for (const QSslCertificate& certificate : pem) {
        if (!certificate.subjectDisplayName().isEmpty())
            return &certificate;
    }
    return nullptr;
}

int runDoctor(const Options& options)
{
    if (options.pem.isEmpty()) {
        Report report;
        report.failure(ExitUsage, QStringLiteral("give the server's certificate with --pem FILE: the doctor starts there"));
        report.print(options.json);
        return ExitUsage;
    }
    Session session(options);
    Road road{options, session, {}, {}, {}, {}};
    std::vector<Step> steps;
    QString advice;  // the first failure's
    bool failure = false;
    for (const StepKind& kind : kSteps) {
        steps.push_back(failure ? Step{false, false, QStringLiteral("not tried (an earlier step failed)"), {}, {}}
                                : kind.check(road));
        if (!failure && !steps.back().ok) {
            failure = true;
            advice = steps.back().advice;
        }
    }
    print(steps, advice, options.json);
    return failure ? ExitConnection : ExitOk;
}

} // namespace vdiclient
