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
#include "gateway/gateway_core.pb.h"

#include <memory>

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

enum ModeMask { Controller = 1, Gateway = 2, Both = Controller | Gateway };

struct DefaultReply {
    int modes;
    const char* method;
    const char* replyText;
};

// The simulator's standing answers. Add a line per method; the text is checked against
// the method's reply type when it is applied (and by the test suite).
const DefaultReply kDefaultReplies[] = {
    // Discovery
    {Controller, "/common.CommonCore/isUseGateway", "useGateway: 0"},
    {Gateway, "/common.CommonCore/isUseGateway", "useGateway: 1"},
    {Gateway, "/common.CommonCore/queryGatewayInfo",
     R"(gateway_list { name: "fake-gateway" description: "Simulated access gateway"
                       type: "vdp" domain: "vdi-fake-gateway" public_ip: "127.0.0.1"
                       VDP_port: "443" RDP_port: "3389" })"},
    {Both, "/client.ClientCore/WhoAreYou", R"(name: "vdi-fake-controller")"},
    {Both, "/client.ClientCore/QueryNodes",
     R"(resourceInfo_list { id: 1 name: "vdi-fake-controller" ip: "127.0.0.1" status: "online"
                            gateway: false port: 443 }
        resourceInfo_list { id: 2 name: "vdi-fake-gateway" ip: "127.0.0.1" status: "online"
                            gateway: true port: 443 })"},
    {Both, "/client.ClientCore/queryAgentUseControllerIp",
     R"(ip: "127.0.0.1" port: 443 domain_name: "vdi-fake-controller")"},
    {Both, "/client.ClientCore/queryDeviceConfigInfo",
     R"(authType: 0 serverArch: "x86_64" displayType: 0 rememberPassword: true)"},

    // Gateway
    {Gateway, "/gateway.GatewayCore/CheckAuthStatus", R"(auth_status: 1 auth_type: "password")"},
    {Gateway, "/gateway.GatewayCore/LoginGateway",
     R"(domain: "vdi-fake-gateway" gw_access_token: "fake-gateway-access-token"
        token_due_date: 4102444800)"},
    {Gateway, "/gateway.GatewayCore/Authenticate", R"(status: "success")"},

    // Session
    {Both, "/client.ClientCore/getLoginConfig",
     R"(enableSmsLogin: true enableThirdPartyLogin: true enableWechatEnterpriseLogin: false
        enableDingtalkLogin: false enableFaceLogin: false enableJjtLogin: false timeout: 300
        ticket: "login-config-ticket-1" url: "https://127.0.0.1:8443/sso/authorize")"},
    {Both, "/client.ClientCore/Login",
     R"(domain: "vdi.local" name: "user" update_interval: 30 start_timeout: 120
        user_id: 1001 due_date: 4102444800
        pool_list { id: 1 name: "Office desktops" status: 1 type: 1 })"},
    {Both, "/client.ClientCore/Heartbeat", ""},

    // Account and client configuration. The library never asks for an upgrade behind a
    // gateway; the gateway mode offers one all the same, as the controller behind it would
    // to any client that asks.
    {Both, "/client.ClientCore/Upgrade",
     R"(client_version: "2.0.0" download_type: "http" force: 0
        url: "https://127.0.0.1:8443/upgrade/vdi-client-2.0.0.tar.gz"
        md5: "9e107d9d372bb6826bd81d3542a419d6"
        description: "Faster reconnection to a desktop and clearer login errors.")"},
    {Both, "/client.ClientCore/queryIndividualConfig",
     R"(systemName: "Simulated Desktop Cloud" copyRight: "Copyright (C) vdi-simulator"
        logoImgUrl: "https://127.0.0.1:8443/branding/logo.png"
        backgroundImgUrl: "https://127.0.0.1:8443/branding/background.jpg"
        content: "Welcome to the simulated desktop cloud." createTime: "2024-03-01 09:00:00"
        individual: 1 vendor_name: "vdi-simulator")"},
    {Both, "/client.ClientCore/queryNextCloudInfo", R"(serverIp: "127.0.0.1" port: "8443" enable: 1 ncSize: 10240)"},
    {Both, "/client.ClientCore/ApplyForEmailInfo",
     R"(serverAddress: "127.0.0.1" serverPort: "465" sendName: "VDI administrator"
        sendEmail: "vdi-admin@vdi.local" authName: "vdi-admin@vdi.local" authPaw: "mail-password")"},
    {Both, "/client.ClientCore/ClientReleasePassword", R"(password: "terminal-authority" enable: 1)"},
    {Both, "/client.ClientCore/confirmQuantumBind", "bindResult: true"},
};

class CollectErrors : public google::protobuf::io::ErrorCollector {
public:
    void AddError(int line, google::protobuf::io::ColumnNumber column, const std::string& message) override
    {
        if (!text.empty())
            text += "; ";
        text += std::to_string(line + 1) + ':' + std::to_string(column + 1) + ": " + message;
    }
    std::string text;
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
    int mask = 0;
    if (mode == QLatin1String("controller"))
        mask = Controller;
    else if (mode == QLatin1String("gateway"))
        mask = Gateway;

    Scenario scenario;
    for (const DefaultReply& reply : kDefaultReplies) {
        if (reply.modes & mask) {
            ScenarioEntry entry(reply.replyText);
            entry.origin = "default " + mode.toStdString() + " scenario";
            scenario[reply.method] = std::move(entry);
        }
    }
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
        const std::string& path = item.first;
        const ScenarioEntry& entry = item.second;
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
            if (error)
                *error = describe(path, entry) + QStringLiteral(": the reply is not a valid %1: %2")
                    .arg(QString::fromStdString(method->output_type()->full_name()),
                         QString::fromStdString(errors.text));
            return false;
        }
        Script script;
        script.code = entry.code;
        script.message = entry.message;
        script.delayMs = entry.delayMs;
        reply->SerializeToString(&script.replyBytes);
        scripts[path] = std::move(script);
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

bool parseScenarioText(const QString& text, const QString& sourceName, Scenario* scenario, QString* error)
{
    static const QRegularExpression methodLine(QStringLiteral("^method\\s+(\\S+)\\s*$"));
    static const QRegularExpression statusLine(QStringLiteral("^\\s*status\\s+([^\\s:{<]\\S*)(?:\\s+(.*\\S))?\\s*$"));
    static const QRegularExpression delayLine(QStringLiteral("^\\s*delay\\s+([^\\s:{<]\\S*)\\s*$"));

    auto fail = [&](int lineNumber, const QString& why) {
        if (error)
            *error = QStringLiteral("%1:%2: %3").arg(sourceName).arg(lineNumber).arg(why);
        return false;
    };

    Scenario parsed;
    std::string currentMethod;
    ScenarioEntry current;
    bool inBlock = false;
    auto closeBlock = [&] {
        if (inBlock)
            parsed[currentMethod] = current;
        inBlock = false;
    };

    const QStringList lines = text.split(QLatin1Char('\n'));
    for (int i = 0; i < lines.size(); ++i) {
        const int lineNumber = i + 1;
        QString line = lines.at(i);
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);

        if (line.trimmed().isEmpty()) {
            closeBlock();
            continue;
        }
        if (!inBlock) {
            if (line.trimmed().startsWith(QLatin1Char('#')))
                continue;
            const QRegularExpressionMatch m = methodLine.match(line);
            if (!m.hasMatch())
                return fail(lineNumber, QStringLiteral("expected \"method /package.Service/Method\""));
            currentMethod = m.captured(1).toStdString();
            if (!findMethod(currentMethod))
                return fail(lineNumber, QStringLiteral("no such method: %1").arg(m.captured(1)));
            current = ScenarioEntry();
            current.origin = QStringLiteral("%1:%2").arg(sourceName).arg(lineNumber).toStdString();
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
        current.replyText += line.toStdString();
        current.replyText += '\n';
    }
    closeBlock();
    mergeScenario(scenario, parsed);
    return true;
}

bool loadScenarioFile(const QString& path, Scenario* scenario, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    return parseScenarioText(QString::fromUtf8(file.readAll()), path, scenario, error);
}

} // namespace vdifake
