#include "scenario.h"

#include <QFile>
#include <QRegularExpression>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>

#include "client/client_core.pb.h"
#include "client/client_stream.pb.h"
#include "common/common_core.pb.h"
#include "common/error_data.pb.h"
#include "gateway/gateway_core.pb.h"
#include "deployment.pb.h"

#include <algorithm>
#include <memory>
#include <set>

namespace vdifake {

namespace {

// Touching one type of each generated file keeps the library holding them linked in and
// their descriptors registered before the pool is searched by name.
void ensureGeneratedDescriptors()
{
    static const bool loaded = [] {
        return client::WhoAreYouReply::descriptor() && common::StreamMessage::descriptor()
            && common::isUseGatewayResp::descriptor() && gateway::LoginGatewayResp::descriptor();
    }();
    (void)loaded;
}

class CollectErrors : public google::protobuf::io::ErrorCollector {
public:
    void AddError(int line, google::protobuf::io::ColumnNumber column, const std::string& message) override
    {
        if (firstLine < 0) {
            firstLine = line;
            firstColumn = column;
            firstMessage = message;
        }
        if (!text.empty())
            text += "; ";
        text += std::to_string(line + 1) + ':' + std::to_string(column + 1) + ": " + message;
    }
    std::string text;
    int firstLine = -1;  // 0-based line of the first error in the parsed text
    int firstColumn = 0;
    std::string firstMessage;
};

QString describe(const std::string& method, const ScenarioEntry& entry)
{
    QString where = QString::fromStdString(method);
    if (!entry.origin.empty())
        where = QString::fromStdString(entry.origin) + QStringLiteral(": ") + where;
    return where;
}

struct StatusName {
    grpc::StatusCode code;
    const char* name;
};

const StatusName kStatusNames[] = {
    {grpc::StatusCode::OK, "OK"},
    {grpc::StatusCode::CANCELLED, "CANCELLED"},
    {grpc::StatusCode::UNKNOWN, "UNKNOWN"},
    {grpc::StatusCode::INVALID_ARGUMENT, "INVALID_ARGUMENT"},
    {grpc::StatusCode::DEADLINE_EXCEEDED, "DEADLINE_EXCEEDED"},
    {grpc::StatusCode::NOT_FOUND, "NOT_FOUND"},
    {grpc::StatusCode::ALREADY_EXISTS, "ALREADY_EXISTS"},
    {grpc::StatusCode::PERMISSION_DENIED, "PERMISSION_DENIED"},
    {grpc::StatusCode::RESOURCE_EXHAUSTED, "RESOURCE_EXHAUSTED"},
    {grpc::StatusCode::FAILED_PRECONDITION, "FAILED_PRECONDITION"},
    {grpc::StatusCode::ABORTED, "ABORTED"},
    {grpc::StatusCode::OUT_OF_RANGE, "OUT_OF_RANGE"},
    {grpc::StatusCode::UNIMPLEMENTED, "UNIMPLEMENTED"},
    {grpc::StatusCode::INTERNAL, "INTERNAL"},
    {grpc::StatusCode::UNAVAILABLE, "UNAVAILABLE"},
    {grpc::StatusCode::DATA_LOSS, "DATA_LOSS"},
    {grpc::StatusCode::UNAUTHENTICATED, "UNAUTHENTICATED"},
};

// The script of a scenario entry: its reply parsed as the method's reply type. On error,
// `*errorLine` (when given) is the 0-based line of the reply text that is wrong.
bool buildScript(const std::string& path, const ScenarioEntry& entry, Script* script, int* errorLine, QString* error)
{
    const google::protobuf::MethodDescriptor* method = findMethod(path);
    if (!method) {
        if (error)
            *error = describe(path, entry) + QStringLiteral(": no such method");
        return false;
    }
    const google::protobuf::Message* prototype =
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(method->output_type());
    if (!prototype) {
        if (error)
            *error = describe(path, entry) + QStringLiteral(": no generated type for ")
                + QString::fromStdString(method->output_type()->full_name());
        return false;
    }
    std::unique_ptr<google::protobuf::Message> reply(prototype->New());
    google::protobuf::TextFormat::Parser parser;
    CollectErrors errors;
    parser.RecordErrorsTo(&errors);
    if (!parser.ParseFromString(entry.replyText, reply.get())) {
        if (errorLine)
            *errorLine = std::max(errors.firstLine, 0);
        if (error)
            *error = describe(path, entry) + QStringLiteral(": the reply is not a valid %1: %2")
                .arg(QString::fromStdString(method->output_type()->full_name()),
                     QString::fromStdString(errors.text));
        return false;
    }
    script->code = entry.code;
    script->message = entry.message;
    script->delayMs = entry.delayMs;
    reply->SerializeToString(&script->replyBytes);
    return true;
}

// Whether the reply of a method has an error field (common.ErrorData), or is one.
bool replyCarriesError(const google::protobuf::MethodDescriptor* method)
{
    const google::protobuf::Descriptor* reply = method->output_type();
    if (reply == common::ErrorData::descriptor())
        return true;
    const google::protobuf::FieldDescriptor* field = reply->FindFieldByName("error");
    return field && field->message_type() == common::ErrorData::descriptor();
}

// Reads and checks the text of a deployment block. On error, `*line` is the 0-based line of
// the block's text that is wrong.
bool readDeployment(const std::string& text, config::Deployment* deployment, int* line, QString* why)
{
    using google::protobuf::TextFormat;
    TextFormat::Parser parser;
    CollectErrors errors;
    parser.RecordErrorsTo(&errors);
    TextFormat::ParseInfoTree tree;
    parser.WriteLocationsTo(&tree);
    if (!parser.ParseFromString(text, deployment)) {
        *line = std::max(errors.firstLine, 0);
        *why = QStringLiteral("deployment, column %1: %2")
                   .arg(errors.firstColumn + 1)
                   .arg(QString::fromStdString(errors.firstMessage));
        return false;
    }

    // Where an entry of the block was written.
    auto at = [&](const TextFormat::ParseInfoTree* in, const google::protobuf::Descriptor* type, const char* name,
                  int index) {
        const google::protobuf::FieldDescriptor* field = type->FindFieldByName(name);
        return in && field ? std::max(in->GetLocation(field, field->is_repeated() ? index : -1).line, 0) : 0;
    };
    auto nested = [&](const TextFormat::ParseInfoTree* in, const google::protobuf::Descriptor* type,
                      const char* name, int index) -> const TextFormat::ParseInfoTree* {
        const google::protobuf::FieldDescriptor* field = type->FindFieldByName(name);
        return in && field ? in->GetTreeForNested(field, field->is_repeated() ? index : -1) : nullptr;
    };
    auto fail = [&](int where, const QString& message) {
        *line = where;
        *why = message;
        return false;
    };
    const google::protobuf::Descriptor* top = config::Deployment::descriptor();

    if (!deployment->mode().empty() && !scenarioModes().contains(QString::fromStdString(deployment->mode())))
        return fail(at(&tree, top, "mode", 0),
                    QStringLiteral("unknown mode \"%1\" (controller or gateway)").arg(QString::fromStdString(deployment->mode())));
    for (const char* kind : {"user", "ldap_user"}) {
        const auto& users = std::string(kind) == "user" ? deployment->user() : deployment->ldap_user();
        for (int i = 0; i < users.size(); ++i) {
            if (users.Get(i).name().empty())
                return fail(at(&tree, top, kind, i), QStringLiteral("a %1 without a name").arg(QLatin1String(kind)));
        }
    }
    for (int i = 0; i < deployment->gateway().user_size(); ++i) {
        if (deployment->gateway().user(i).name().empty())
            return fail(at(nested(&tree, top, "gateway", 0), config::Gateway::descriptor(), "user", i),
                        QStringLiteral("a gateway user without a name"));
    }

    std::set<int64_t> poolIds;
    std::set<std::string> poolNames;
    for (int i = 0; i < deployment->pool_size(); ++i) {
        const config::Pool& pool = deployment->pool(i);
        const int where = at(&tree, top, "pool", i);
        if (pool.id() <= 0 || !poolIds.insert(pool.id()).second)
            return fail(where, QStringLiteral("pool \"%1\": every pool needs an id of its own, above 0")
                                   .arg(QString::fromStdString(pool.name())));
        if (pool.name().empty() || !poolNames.insert(pool.name()).second)
            return fail(where, QStringLiteral("pool %1: every pool needs a name of its own").arg(pool.id()));
        for (int k = 0; k < pool.desktop_size(); ++k) {
            const config::Desktop& desktop = pool.desktop(k);
            const int desktopAt = at(nested(&tree, top, "pool", i), config::Pool::descriptor(), "desktop", k);
            if (desktop.owner().empty())
                return fail(desktopAt, QStringLiteral("pool %1: a desktop without an owner").arg(pool.id()));
            const std::string& status = desktop.status();
            if (!status.empty() && status != "running" && status != "shutdown" && status != "suspended")
                return fail(desktopAt, QStringLiteral("pool %1: desktop status \"%2\" is none of running, shutdown, "
                                                      "suspended")
                                           .arg(pool.id())
                                           .arg(QString::fromStdString(status)));
        }
    }

    for (int i = 0; i < deployment->fault_size(); ++i) {
        const config::Fault& fault = deployment->fault(i);
        const int where = at(&tree, top, "fault", i);
        const QString name = fault.method().empty() ? QStringLiteral("*") : QString::fromStdString(fault.method());
        const google::protobuf::MethodDescriptor* method = nullptr;
        if (!fault.method().empty() && fault.method() != "*") {
            method = findMethod(fault.method());
            if (!method)
                return fail(where, QStringLiteral("fault: no such method: %1").arg(name));
        }
        grpc::StatusCode code;
        if (!fault.status().empty() && !statusCodeFromString(QString::fromStdString(fault.status()), &code))
            return fail(where, QStringLiteral("fault of %1: unknown status %2").arg(name, QString::fromStdString(fault.status())));
        if (fault.delay_ms() < 0 || fault.fail_next() < 0 || fault.down_after_calls() < 0 || fault.down_for_ms() < 0)
            return fail(where, QStringLiteral("fault of %1: a count or a time below 0").arg(name));
        if (fault.error_code() != 0 && method && !replyCarriesError(method))
            return fail(where, QStringLiteral("fault of %1: its reply has no error field for error_code").arg(name));
        if (fault.down_for_ms() > 0 && fault.down_after_calls() == 0)
            return fail(where, QStringLiteral("fault of %1: down_for_ms wants down_after_calls").arg(name));
    }
    return true;
}

} // namespace

const google::protobuf::MethodDescriptor* findMethod(const std::string& path)
{
    ensureGeneratedDescriptors();
    // "/package.Service/Method" -> "package.Service.Method"
    if (path.size() < 4 || path.front() != '/')
        return nullptr;
    const size_t slash = path.find('/', 1);
    if (slash == std::string::npos || slash == 1 || slash + 1 >= path.size()
        || path.find('/', slash + 1) != std::string::npos)
        return nullptr;
    const std::string fullName = path.substr(1, slash - 1) + '.' + path.substr(slash + 1);
    return google::protobuf::DescriptorPool::generated_pool()->FindMethodByName(fullName);
}

QStringList scenarioModes()
{
    return {QStringLiteral("controller"), QStringLiteral("gateway")};
}

Scenario defaultScenario(const QString& mode)
{
    if (!scenarioModes().contains(mode))
        return {};
    return builtInScenario().methodsFor(mode);
}

Scenario ScenarioFile::methodsFor(const QString& mode) const
{
    Scenario scenario = methods;
    if (mode == QLatin1String("controller"))
        mergeScenario(&scenario, controllerMethods);
    else if (mode == QLatin1String("gateway"))
        mergeScenario(&scenario, gatewayMethods);
    return scenario;
}

QString ScenarioFile::mode() const
{
    return deployment ? QString::fromStdString(deployment->mode()) : QString();
}

const ScenarioFile& builtInScenario()
{
    static const ScenarioFile scenario = [] {
        ScenarioFile file;
        QString error;
        if (!parseScenarioFile(QString::fromUtf8(builtInScenarioText()), QStringLiteral("built-in scenario"), &file,
                               &error))
            qFatal("vdifake: the built-in scenario does not read: %s", qPrintable(error));
        return file;
    }();
    return scenario;
}

void mergeScenario(Scenario* base, const Scenario& overrides)
{
    for (const auto& entry : overrides)
        (*base)[entry.first] = entry.second;
}

bool applyScenario(FakeServer& server, const Scenario& scenario, QString* error)
{
    std::map<std::string, Script> scripts;
    for (const auto& item : scenario) {
        Script script;
        if (!buildScript(item.first, item.second, &script, nullptr, error))
            return false;
        scripts[item.first] = std::move(script);
    }
    for (const auto& script : scripts)
        server.setScript(script.first, script.second);
    return true;
}

bool statusCodeFromString(const QString& text, grpc::StatusCode* code)
{
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    for (const StatusName& s : kStatusNames) {
        if (isNumber ? number == static_cast<int>(s.code)
                     : text.compare(QLatin1String(s.name), Qt::CaseInsensitive) == 0) {
            *code = s.code;
            return true;
        }
    }
    return false;
}

QString statusCodeName(grpc::StatusCode code)
{
    for (const StatusName& s : kStatusNames) {
        if (s.code == code)
            return QLatin1String(s.name);
    }
    return QString::number(static_cast<int>(code));
}

bool parseScenarioFile(const QString& text, const QString& sourceName, ScenarioFile* out, QString* error)
{
    static const QRegularExpression methodLine(QStringLiteral("^method\\s+(\\S+)\\s*$"));
    static const QRegularExpression statusLine(QStringLiteral("^\\s*status\\s+([^\\s:{<]\\S*)(?:\\s+(.*\\S))?\\s*$"));
    static const QRegularExpression delayLine(QStringLiteral("^\\s*delay\\s+([^\\s:{<]\\S*)\\s*$"));
    static const QRegularExpression modeLine(QStringLiteral("^\\s*mode\\s+([^\\s:{<]\\S*)\\s*$"));
    static const QRegularExpression deploymentOpen(QStringLiteral("^deployment\\s*\\{\\s*$"));
    static const QRegularExpression deploymentClose(QStringLiteral("^\\}\\s*$"));

    auto fail = [&](int lineNumber, const QString& why) {
        if (error)
            *error = QStringLiteral("%1:%2: %3").arg(sourceName).arg(lineNumber).arg(why);
        return false;
    };

    ScenarioFile parsed;
    std::string currentMethod;
    QString currentMode;
    ScenarioEntry current;
    bool inBlock = false;
    std::vector<int> replyLines;  // the file's line of each line of the reply text
    // Ends the block; its reply is checked against the method's reply type here, so that an
    // error names the line.
    auto closeBlock = [&]() -> bool {
        if (!inBlock)
            return true;
        inBlock = false;
        Script script;
        int wrongLine = 0;
        QString why;
        if (!buildScript(currentMethod, current, &script, &wrongLine, &why)) {
            const int line = replyLines.empty() ? 0 : replyLines.at(std::min<size_t>(wrongLine, replyLines.size() - 1));
            if (error)
                *error = line > 0 ? QStringLiteral("%1:%2: %3").arg(sourceName).arg(line).arg(why) : why;
            return false;
        }
        Scenario& target = currentMode.isEmpty() ? parsed.methods
            : currentMode == QLatin1String("controller") ? parsed.controllerMethods : parsed.gatewayMethods;
        target[currentMethod] = current;
        return true;
    };

    const QStringList lines = text.split(QLatin1Char('\n'));
    for (int i = 0; i < lines.size(); ++i) {
        const int lineNumber = i + 1;
        QString line = lines.at(i);
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);

        if (line.trimmed().isEmpty()) {
            if (!closeBlock())
                return false;
            continue;
        }
        if (!inBlock) {
            if (line.trimmed().startsWith(QLatin1Char('#')))
                continue;
            if (deploymentOpen.match(line).hasMatch()) {
                if (parsed.deployment)
                    return fail(lineNumber, QStringLiteral("a second deployment block (the first is at %1)")
                                                .arg(parsed.deploymentOrigin));
                std::string body;
                int end = i + 1;
                for (; end < lines.size(); ++end) {
                    QString bodyLine = lines.at(end);
                    if (bodyLine.endsWith(QLatin1Char('\r')))
                        bodyLine.chop(1);
                    if (deploymentClose.match(bodyLine).hasMatch())
                        break;
                    body += bodyLine.toStdString();
                    body += '\n';
                }
                if (end == lines.size())
                    return fail(lineNumber, QStringLiteral("the deployment block has no closing line \"}\""));
                auto deployment = std::make_shared<config::Deployment>();
                QString why;
                int whyLine = 0;
                if (!readDeployment(body, deployment.get(), &whyLine, &why))
                    return fail(lineNumber + 1 + whyLine, why);
                parsed.deployment = deployment;
                parsed.deploymentOrigin = QStringLiteral("%1:%2").arg(sourceName).arg(lineNumber);
                i = end;
                continue;
            }
            const QRegularExpressionMatch m = methodLine.match(line);
            if (!m.hasMatch())
                return fail(lineNumber,
                            QStringLiteral("expected \"method /package.Service/Method\" or \"deployment {\""));
            currentMethod = m.captured(1).toStdString();
            if (!findMethod(currentMethod))
                return fail(lineNumber, QStringLiteral("no such method: %1").arg(m.captured(1)));
            current = ScenarioEntry();
            currentMode.clear();
            current.origin = QStringLiteral("%1:%2").arg(sourceName).arg(lineNumber).toStdString();
            replyLines.clear();
            inBlock = true;
            continue;
        }
        QRegularExpressionMatch m = statusLine.match(line);
        if (m.hasMatch()) {
            if (!statusCodeFromString(m.captured(1), &current.code))
                return fail(lineNumber, QStringLiteral("unknown status %1").arg(m.captured(1)));
            current.message = m.captured(2).toStdString();
            continue;
        }
        m = delayLine.match(line);
        if (m.hasMatch()) {
            bool ok = false;
            const int delay = m.captured(1).toInt(&ok);
            if (!ok || delay < 0)
                return fail(lineNumber, QStringLiteral("bad delay %1").arg(m.captured(1)));
            current.delayMs = delay;
            continue;
        }
        m = modeLine.match(line);
        if (m.hasMatch()) {
            if (!scenarioModes().contains(m.captured(1)))
                return fail(lineNumber, QStringLiteral("unknown mode %1 (controller or gateway)").arg(m.captured(1)));
            currentMode = m.captured(1);
            continue;
        }
        current.replyText += line.toStdString();
        current.replyText += '\n';
        replyLines.push_back(lineNumber);
    }
    if (!closeBlock())
        return false;
    *out = std::move(parsed);
    return true;
}

bool loadScenarioFile(const QString& path, ScenarioFile* out, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    return parseScenarioFile(QString::fromUtf8(file.readAll()), path, out, error);
}

} // namespace vdifake
