#include "testcertificate.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <QtDebug>

namespace vdifake {

namespace {

// Escapes a value for openssl's "-subj /CN=..." syntax, where '/' separates the
// attributes, '+' joins multi-valued ones and '\' escapes.
QString escapeSubjectValue(const QString& value)
{
    QString out;
    out.reserve(value.size());
    for (const QChar c : value) {
        if (c == QLatin1Char('\\') || c == QLatin1Char('/') || c == QLatin1Char('+'))
            out += QLatin1Char('\\');
        out += c;
    }
    return out;
}

QString configText(const QString& commonName, const QString& dnsName)
{
    // The [dn] section stays empty: the subject comes from -subj. With "-subj /" the
    // certificate's subject has no attribute at all.
    QString text = QStringLiteral(
        "[req]\n"
        "distinguished_name = dn\n"
        "x509_extensions = v3\n"
        "prompt = no\n"
        "[dn]\n"
        "[v3]\n"
        "basicConstraints = critical, CA:TRUE\n"
        "keyUsage = critical, digitalSignature, keyEncipherment, keyCertSign\n"
        "extendedKeyUsage = serverAuth, clientAuth\n"
        "subjectKeyIdentifier = hash\n");
    if (!dnsName.isEmpty()) {
        // A certificate without a subject must carry a critical subjectAltName.
        text += QStringLiteral("subjectAltName = %1DNS:%2\n")
                    .arg(commonName.isEmpty() ? QStringLiteral("critical, ") : QString(), dnsName);
    }
    return text;
}

CertificateFiles fail(const QString& why)
{
    qWarning().noquote() << "vdifake: cannot make a test certificate:" << why;
    return {};
}

} // namespace

CertificateFiles makeSelfSignedCertificate(const QString& dir, const QString& commonName,
                                           const QString& dnsName, const QString& baseName)
{
    if (baseName.isEmpty() || baseName.contains(QLatin1Char('/')))
        return fail(QStringLiteral("bad base name \"%1\"").arg(baseName));
    for (const QChar c : dnsName) {
        if (!(c.isLetterOrNumber() || c == QLatin1Char('.') || c == QLatin1Char('-')
              || c == QLatin1Char('_') || c == QLatin1Char('*')))
            return fail(QStringLiteral("bad DNS name \"%1\"").arg(dnsName));
    }
    if (!QDir().mkpath(dir))
        return fail(QStringLiteral("cannot create directory %1").arg(dir));

    const QString openssl = QStandardPaths::findExecutable(QStringLiteral("openssl"));
    if (openssl.isEmpty())
        return fail(QStringLiteral("the openssl program is not on PATH"));

    const QDir target(dir);
    const QString certPath = QFileInfo(target.filePath(baseName + QStringLiteral(".crt.pem"))).absoluteFilePath();
    const QString keyPath = QFileInfo(target.filePath(baseName + QStringLiteral(".key.pem"))).absoluteFilePath();
    const QString configPath = target.filePath(baseName + QStringLiteral(".openssl.cnf"));

    {
        QFile config(configPath);
        if (!config.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
            return fail(QStringLiteral("cannot write %1: %2").arg(configPath, config.errorString()));
        config.write(configText(commonName, dnsName).toUtf8());
    }
    QFile::remove(certPath);
    QFile::remove(keyPath);

    const QString subject = commonName.isEmpty()
        ? QStringLiteral("/")
        : QStringLiteral("/CN=") + escapeSubjectValue(commonName);
    const QStringList args = {
        QStringLiteral("req"), QStringLiteral("-x509"),
        QStringLiteral("-config"), configPath,
        QStringLiteral("-newkey"), QStringLiteral("ec"),
        QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:prime256v1"),
        QStringLiteral("-nodes"),
        QStringLiteral("-sha256"),
        QStringLiteral("-days"), QStringLiteral("2"),
        QStringLiteral("-subj"), subject,
        QStringLiteral("-utf8"),
        QStringLiteral("-keyout"), keyPath,
        QStringLiteral("-out"), certPath,
    };

    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.start(openssl, args);
    const bool started = process.waitForStarted(10000);
    const bool finished = started && process.waitForFinished(30000);
    const QString diagnostics = QString::fromLocal8Bit(process.readAllStandardError()).trimmed();
    QFile::remove(configPath);

    if (!started)
        return fail(QStringLiteral("cannot run %1: %2").arg(openssl, process.errorString()));
    if (!finished) {
        process.kill();
        process.waitForFinished(1000);
        return fail(QStringLiteral("openssl did not finish in time. %1").arg(diagnostics));
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0
        || !QFileInfo(certPath).size() || !QFileInfo(keyPath).size()) {
        QFile::remove(certPath);
        QFile::remove(keyPath);
        return fail(QStringLiteral("openssl exited with code %1: %2")
                        .arg(process.exitCode())
                        .arg(diagnostics));
    }
    return {certPath, keyPath};
}

} // namespace vdifake
