#include "callrecord.h"

#include "scenario.h"

#include <QFile>
#include <QSaveFile>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>

#include <algorithm>
#include <cctype>
#include <memory>

namespace vdifake {

namespace {

const char* const kRedacted = "<redacted>";
const size_t kLongBytes = 64;

std::string lowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

void redactField(google::protobuf::Message* message, const google::protobuf::FieldDescriptor* field)
{
    using google::protobuf::FieldDescriptor;
    const google::protobuf::Reflection* reflection = message->GetReflection();
    if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
        if (field->is_repeated()) {
            for (int i = 0; i < reflection->FieldSize(*message, field); ++i)
                redactMessage(reflection->MutableRepeatedMessage(message, field, i));
        } else if (reflection->HasField(*message, field)) {
            redactMessage(reflection->MutableMessage(message, field));
        }
        return;
    }
    if (field->cpp_type() != FieldDescriptor::CPPTYPE_STRING)
        return;
    const bool secret = isSecretName(field->name());
    const bool bytes = field->type() == FieldDescriptor::TYPE_BYTES;
    auto replacement = [&](const std::string& value, std::string* out) {
        if (value.empty())
            return false;
        if (secret)
            *out = kRedacted;
        else if (bytes && value.size() > kLongBytes)
            *out = '<' + std::to_string(value.size()) + " bytes>";
        else
            return false;
        return true;
    };
    std::string out;
    if (field->is_repeated()) {
        for (int i = 0; i < reflection->FieldSize(*message, field); ++i) {
            if (replacement(reflection->GetRepeatedString(*message, field, i), &out))
                reflection->SetRepeatedString(message, field, i, out);
        }
    } else if (replacement(reflection->GetString(*message, field), &out)) {
        reflection->SetString(message, field, out);
    }
}

} // namespace

bool isSecretName(const std::string& name)
{
    const std::string lower = lowerCase(name);
    for (const char* word : {"password", "passwd", "pwd", "paw", "token", "secret", "sms_code"}) {
        if (lower.find(word) != std::string::npos)
            return true;
    }
    return false;
}

void redactMessage(google::protobuf::Message* message)
{
    const google::protobuf::Descriptor* type = message->GetDescriptor();
    for (int i = 0; i < type->field_count(); ++i)
        redactField(message, type->field(i));
}

QString describeRecordedCall(const RecordedCall& call, int number)
{
    QString text = QStringLiteral("call %1 %2 %3").arg(number).arg(QString::fromStdString(call.method),
                                                                  statusCodeName(call.status));
    if (!call.statusMessage.empty())
        text += QStringLiteral(" (%1)").arg(QString::fromStdString(call.statusMessage));
    if (call.delayMs > 0)
        text += QStringLiteral(" [held %1 ms]").arg(call.delayMs);
    if (call.cancelled)
        text += QStringLiteral(" [cancelled by the client]");
    text += QLatin1Char('\n');
    for (const auto& entry : call.metadata) {
        const std::string& key = entry.first;
        // grpc's own keys tell nothing about the client.
        if (key.rfind("grpc-", 0) == 0 || key == "user-agent" || key == "te" || key == "content-type")
            continue;
        const std::string value = isSecretName(key) && !entry.second.empty() ? kRedacted : entry.second;
        text += QStringLiteral("  metadata %1: %2\n").arg(QString::fromStdString(key), QString::fromStdString(value));
    }
    const google::protobuf::MethodDescriptor* method = findMethod(call.method);
    const google::protobuf::Message* prototype = method
        ? google::protobuf::MessageFactory::generated_factory()->GetPrototype(method->input_type())
        : nullptr;
    for (size_t i = 0; i < call.requests.size(); ++i) {
        std::unique_ptr<google::protobuf::Message> request(prototype ? prototype->New() : nullptr);
        if (!request || !request->ParseFromString(call.requests[i])) {
            text += QStringLiteral("  request %1: %2 bytes that do not parse\n").arg(i + 1).arg(call.requests[i].size());
            continue;
        }
        redactMessage(request.get());
        std::string body;
        google::protobuf::TextFormat::Printer printer;
        printer.SetUseUtf8StringEscaping(true);
        printer.SetInitialIndentLevel(2);
        printer.PrintToString(*request, &body);
        text += QStringLiteral("  request %1 {\n%2  }\n").arg(i + 1).arg(QString::fromStdString(body));
    }
    return text;
}

QStringList describeHelpUpload(const SimulatedDeployment::HelpUpload& upload)
{
    QStringList lines{QStringLiteral("task %1, %2 (%3), %4 bytes in %5 chunk(s); %6")
                          .arg(upload.taskId)
                          .arg(upload.fileName, upload.fileType)
                          .arg(upload.bytes)
                          .arg(upload.chunks)
                          .arg(upload.code == 0 ? QStringLiteral("%1 entries:").arg(upload.entries.size())
                                                : QStringLiteral("refused with code %1").arg(upload.code))};
    lines += upload.entries;
    return lines;
}

QString describeRecord(const std::vector<RecordedCall>& calls,
                       const std::vector<SimulatedDeployment::HelpUpload>& uploads)
{
    QString text = QStringLiteral("# %1 call(s) received; secrets are redacted\n").arg(calls.size());
    for (size_t i = 0; i < calls.size(); ++i)
        text += describeRecordedCall(calls[i], int(i + 1));
    for (const SimulatedDeployment::HelpUpload& upload : uploads) {
        const QStringList lines = describeHelpUpload(upload);
        text += QStringLiteral("upload ") + lines.join(QStringLiteral("\n    ")) + QLatin1Char('\n');
    }
    return text;
}

bool writeRecord(const QString& path, const std::vector<RecordedCall>& calls,
                 const std::vector<SimulatedDeployment::HelpUpload>& uploads, QString* error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    file.write(describeRecord(calls, uploads).toUtf8());
    if (!file.commit()) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

} // namespace vdifake
