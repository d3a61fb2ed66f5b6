#include "vdishell.h"

#include <QProcess>
#include <QStringList>

namespace {
void start(QProcess& process, const QString& command, int timeoutMs)
{
    process.start(QStringLiteral("sh"), QStringList{QStringLiteral("-c"), command}, QIODevice::ReadWrite);
    process.waitForFinished(timeoutMs);
}
} // namespace

QString vdishell::output(const QString& command, int timeoutMs)
{
    QProcess process;
    start(process, command, timeoutMs);
    const QByteArray text = process.readAllStandardOutput().trimmed();
    return text.isNull() ? QString() : QString::fromUtf8(text.constData());
}

void vdishell::run(const QString& command, int timeoutMs)
{
    QProcess process;
    start(process, command, timeoutMs);
}

QString vdishell::quoted(const QString& text)
{
    QString word = text;
    word.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + word + QLatin1Char('\'');
}
