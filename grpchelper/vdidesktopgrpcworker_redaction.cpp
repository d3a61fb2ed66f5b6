// Passwords out of logged request texts. A deliberately crude text operation on protobuf debug
// output: a key goes together with the fixed span of characters behind it, whatever they are.
#include "vdidesktopgrpcworker.h"

#include <QStringList>

namespace {
const int kRemovedBehindKey = 29;  // covers `: "` and a value of up to 26 characters
}

void VdiDesktopGrpcWorker::printInfoWithoutKeyList(QString& text)
{
    if (text.indexOf(QLatin1String("password"), 0, Qt::CaseSensitive) == -1)
        return;
    QStringList keys{QStringLiteral("password"), QStringLiteral("spice_password")};
    for (QString& key : keys)
        printInfoWithoutKeyValue(text, key);
}

QString VdiDesktopGrpcWorker::debugInfoWithoutKeyList(QString text)
{
    printInfoWithoutKeyList(text);
    return text;
}

void VdiDesktopGrpcWorker::printInfoWithoutKeyValue(QString& text, QString& key)
{
    const int count = text.count(key, Qt::CaseSensitive);
    if (count <= 0)
        return;
    int from = 0;
    for (int i = 0; i < count; ++i) {
        const int pos = text.indexOf(key, from, Qt::CaseSensitive);
        if (pos != -1) {
            text.remove(pos, key.size() + kRemovedBehindKey);
            from = pos + key.size();
        }
    }
}
