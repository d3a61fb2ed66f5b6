#pragma once

// Data-driven answers for the fake server: a scenario maps a method path to the reply it
// returns, written in protobuf text format. The reply's message type is the method's
// output type in the generated descriptor pool.

#include "fakeserver.h"

#include <QString>
#include <QStringList>

#include <grpcpp/support/status.h>

#include <map>
#include <memory>
#include <utility>
#include <string>

namespace google {
namespace protobuf {
class MethodDescriptor;
} // namespace protobuf
} // namespace google

namespace vdifake {

namespace config {
class Deployment;
} // namespace config

struct ScenarioEntry {
    std::string replyText;  // the reply in text format ("useGateway: 1"); empty: all defaults
    grpc::StatusCode code = grpc::StatusCode::OK;  // non-OK: answer with this status instead
    std::string message;                           // its status message
    int delayMs = 0;                               // hold the call this long first
    std::string origin;                            // where it was written, for error messages

    ScenarioEntry() = default;
    // Implicit, so that tables can read {"/common.CommonCore/isUseGateway", "useGateway: 0"}.
    ScenarioEntry(const char* text) : replyText(text) {}
    ScenarioEntry(std::string text) : replyText(std::move(text)) {}
};

// Method path ("/client.ClientCore/Login") -> its answer.
using Scenario = std::map<std::string, ScenarioEntry>;

// The method a path names in the generated descriptor pool, or null.
const google::protobuf::MethodDescriptor* findMethod(const std::string& path);

// The modes defaultScenario() knows: "controller", "gateway".
QStringList scenarioModes();

// The simulator's standing answers for a mode: "controller" (a controller reached
// directly, no gateway in use) or "gateway" (the deployment uses an access gateway): the
// method blocks of the built-in scenario (default.scenario) for that mode. An unknown mode
// gives an empty scenario.
Scenario defaultScenario(const QString& mode);

// A whole scenario file as read: its method blocks, for every mode and for one mode alone,
// and its deployment block, if any.
struct ScenarioFile {
    Scenario methods;             // blocks without a "mode" line
    Scenario controllerMethods;   // "mode controller" blocks
    Scenario gatewayMethods;      // "mode gateway" blocks
    // The "deployment { ... }" block, checked; null when the file has none.
    std::shared_ptr<const config::Deployment> deployment;
    QString deploymentOrigin;     // "<file>:<line>" of that block

    // The blocks played in a mode: those without a mode line, then those of the mode.
    Scenario methodsFor(const QString& mode) const;
    // The deployment's mode ("controller", "gateway"), or empty when it names none.
    QString mode() const;
};

// The text of the built-in scenario (tools/fakeserver/default.scenario, compiled in).
const char* builtInScenarioText();
// The built-in scenario, read once: its methods and the default deployment.
const ScenarioFile& builtInScenario();

// Reads a scenario file (its format: tools/simulator/scenarios/README.md). An error names the
// file and the line.
bool parseScenarioFile(const QString& text, const QString& sourceName, ScenarioFile* out, QString* error);
bool loadScenarioFile(const QString& path, ScenarioFile* out, QString* error);

// Copies every entry of `overrides` into `base`, replacing entries of the same method.
void mergeScenario(Scenario* base, const Scenario& overrides);

// Checks the whole scenario, then sets every entry as the method's standing script. An
// unknown method or a reply text that does not parse as the method's reply type is an
// error naming the method; then nothing is applied.
bool applyScenario(FakeServer& server, const Scenario& scenario, QString* error);

// "UNAVAILABLE" or "14" -> the code; false when it names none.
bool statusCodeFromString(const QString& text, grpc::StatusCode* code);
QString statusCodeName(grpc::StatusCode code);

} // namespace vdifake
