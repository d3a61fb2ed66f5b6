#pragma once

// The calls a fake server received, written for people: each call's method and status, its
// metadata and its requests in protobuf text format, with every secret redacted: the values of
// metadata keys and of fields whose names speak of a password, a token, a secret or a code
// (password, passwd, pwd, paw, token, secret, sms_code) read "<redacted>", and long byte
// fields only give their size.

#include "deployment.h"
#include "fakeserver.h"

#include <QString>
#include <QStringList>

#include <string>
#include <vector>

namespace google {
namespace protobuf {
class Message;
} // namespace protobuf
} // namespace google

namespace vdifake {

// Whether a metadata key or a field name names a secret.
bool isSecretName(const std::string& name);

// Replaces the secrets of a message (and of the messages in it) by "<redacted>", and bytes
// fields longer than 64 bytes by "<N bytes>".
void redactMessage(google::protobuf::Message* message);

// One call: "call <n> <method> <status>" (with the status message, "[held <ms> ms]" when the
// server held it, "[cancelled by the client]"), then its metadata and requests, indented.
QString describeRecordedCall(const RecordedCall& call, int number);

// A help upload: "task <id>, <file> (<type>), <n> bytes in <n> chunk(s); <n> entries:" (or
// "refused with code <n>"), then one line per entry of its zip.
QStringList describeHelpUpload(const SimulatedDeployment::HelpUpload& upload);

// The whole record: every call, then the help uploads with the entries of each zip.
QString describeRecord(const std::vector<RecordedCall>& calls,
                       const std::vector<SimulatedDeployment::HelpUpload>& uploads);
// Writes describeRecord() to a file (replacing it); false with the reason.
bool writeRecord(const QString& path, const std::vector<RecordedCall>& calls,
                 const std::vector<SimulatedDeployment::HelpUpload>& uploads, QString* error);

} // namespace vdifake
