#include "wirefields.h"

#include <string>

#include <google/protobuf/descriptor.h>

namespace vditest {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

QStringList fillDistinct(Message& message, int& next, const QString& prefix, QStringList* others)
{
    QStringList paths;
    const google::protobuf::Descriptor* descriptor = message.GetDescriptor();
    const google::protobuf::Reflection* reflection = message.GetReflection();
    for (int i = 0; i < descriptor->field_count(); ++i) {
        const FieldDescriptor* field = descriptor->field(i);
        const QString path = prefix + QString::fromStdString(field->name());
        if (field->is_repeated())
            continue;
        switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            reflection->SetInt32(&message, field, next++);
            paths << path;
            break;
        case FieldDescriptor::CPPTYPE_INT64:
            reflection->SetInt64(&message, field, next++);
            paths << path;
            break;
        case FieldDescriptor::CPPTYPE_BOOL:
            reflection->SetBool(&message, field, true);
            if (others)
                *others << path;
            break;
        case FieldDescriptor::CPPTYPE_STRING:
            reflection->SetString(&message, field, "text " + std::to_string(next++));
            if (others)
                *others << path;
            break;
        case FieldDescriptor::CPPTYPE_MESSAGE:
            paths << fillDistinct(*reflection->MutableMessage(&message, field), next, path + QLatin1Char('.'), others);
            break;
        default:
            break;
        }
    }
    return paths;
}

QStringList fillEverything(Message& message)
{
    int next = 101;
    QStringList others;
    return fillDistinct(message, next, QString(), &others) + others;
}

QString wireText(const Message& message, const QString& path)
{
    const Message* current = &message;
    const QStringList names = path.split(QLatin1Char('.'));
    for (int i = 0; i < names.size(); ++i) {
        const FieldDescriptor* field = current->GetDescriptor()->FindFieldByName(names[i].toStdString());
        if (!field || (field->is_repeated() && field->cpp_type() != FieldDescriptor::CPPTYPE_STRING))
            break;
        const google::protobuf::Reflection* reflection = current->GetReflection();
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
            current = &reflection->GetMessage(*current, field);
            continue;
        }
        if (i + 1 < names.size())
            break;
        if (field->is_repeated()) {
            QStringList texts;
            for (int j = 0; j < reflection->FieldSize(*current, field); ++j)
                texts << QString::fromStdString(reflection->GetRepeatedString(*current, field, j));
            return texts.join(QLatin1Char('|'));
        }
        switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            return QString::number(reflection->GetInt32(*current, field));
        case FieldDescriptor::CPPTYPE_INT64:
            return QString::number(reflection->GetInt64(*current, field));
        case FieldDescriptor::CPPTYPE_BOOL:
            return QLatin1String(reflection->GetBool(*current, field) ? "true" : "false");
        case FieldDescriptor::CPPTYPE_STRING:
            return QString::fromStdString(reflection->GetString(*current, field));
        default:
            break;
        }
        break;
    }
    return QStringLiteral("<no field %1>").arg(path);
}

qint64 wireNumber(const Message& message, const QString& path)
{
    bool isNumber = false;
    const qint64 number = wireText(message, path).toLongLong(&isNumber);
    return isNumber ? number : -1;
}

} // namespace vditest
