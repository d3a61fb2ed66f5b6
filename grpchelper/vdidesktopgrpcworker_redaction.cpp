// Passwords out of logged request texts. A deliberately crude text operation on protobuf debug
// output: a key goes together with the fixed span of characters behind it, whatever they are.
#include "vdidesktopgrpcworker.h"

#include <memory>
#include <vector>

#include <QStringList>

#include <google/protobuf/descriptor.h>

#include "vdidesktopgrpchelper.h"

namespace {
const int kRemovedBehindKey = 29;  // covers `: "` and a value of up to 26 characters

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

bool namesASecret(const std::string& fieldName)
{
    static const QStringList parts{QStringLiteral("password"), QStringLiteral("passwd"), QStringLiteral("pwd"),
                                   QStringLiteral("token"), QStringLiteral("secret")};
    const QString name = QString::fromStdString(fieldName);
    for (const QString& part : parts) {
        if (name.contains(part, Qt::CaseInsensitive))
            return true;
    }
    return false;
}

// Masks the text fields named like a secret, in this message and every message inside it.
void maskSecrets(Message& message)
{
    const auto* reflection = message.GetReflection();
    std::vector<const FieldDescriptor*> fields;
    reflection->ListFields(message, &fields);
    for (const FieldDescriptor* field : fields) {
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
            if (!field->is_repeated()) {
                maskSecrets(*reflection->MutableMessage(&message, field));
                continue;
            }
            for (int i = 0; i < reflection->FieldSize(message, field); ++i)
                maskSecrets(*reflection->MutableRepeatedMessage(&message, field, i));
        } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING && namesASecret(field->name())) {
            if (!field->is_repeated()) {
                reflection->SetString(&message, field, VdiDesktopGrpcWorker::kSecretMask);
                continue;
            }
            for (int i = 0; i < reflection->FieldSize(message, field); ++i)
                reflection->SetRepeatedString(&message, field, i, VdiDesktopGrpcWorker::kSecretMask);
        }
    }
}
} // namespace

const char* const VdiDesktopGrpcWorker::kSecretMask = "********";

void VdiDesktopGrpcWorker::setStrictRedaction(bool on)
{
    m_strictRedaction = on;
}

QString VdiDesktopGrpcWorker::maskedDebugString(const Message& message)
{
    std::unique_ptr<Message> copy(message.New());
    copy->CopyFrom(message);
    maskSecrets(*copy);
    return VdiDesktopGrpcHelper::fromStdString(copy->DebugString());
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
