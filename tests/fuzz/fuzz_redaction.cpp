// Logged texts through the worker's redaction, and texts through the conversion between QString
// and the wire's UTF-8, which has a fast road of its own for ASCII.
//
// The input is the text. Checked: toStdString agrees with Qt's own conversion and a well-formed
// text comes back unchanged from the wire form; the redaction behaves as the worker promises, the
// default cut and the strict masking alike.
#include "fuzzsupport.h"

#include "vdidesktopgrpchelper.h"
#include "vdidesktopgrpcworker.h"

#include "client/client_core.pb.h"

namespace {
using H = VdiDesktopGrpcHelper;
using vdifuzz::check;

// toStdString must give what Qt's own conversion gives, and a well-formed text must come back
// unchanged from the wire form. (Qt's UTF-8 decoder drops a leading byte order mark, U+FEFF: such
// a text comes back without it.)
void checkText(const QString& value)
{
    const std::string wire = H::toStdString(value);
    check(wire == value.toStdString(), "toStdString agrees with QString::toStdString");
    if (value.isValidUtf16() && !value.startsWith(QChar(0xfeff)))
        check(H::fromStdString(wire) == value, "a text survives toStdString and fromStdString");
}

// The worker's redaction of a logged text. Both entry points agree; a text without the key is
// left alone, one with it loses something. Where the text holds the key exactly once, as a field
// name at the start of its line, the key goes with the 29 characters behind it, and with it a
// value of up to 26 characters.
void checkRedaction(const QString& text)
{
    static VdiDesktopGrpcWorker* const worker = new VdiDesktopGrpcWorker;  // lives as long as the process
    QString inPlace = text;
    worker->printInfoWithoutKeyList(inPlace);
    check(worker->debugInfoWithoutKeyList(text) == inPlace, "both redaction entry points agree");

    const QString key = QStringLiteral("password");
    if (!text.contains(key)) {
        check(inPlace == text, "a text without the key stays as it is");
        return;
    }
    check(inPlace.size() < text.size(), "a text with the key loses something");
    if (text.count(key) != 1)
        return;
    const int pos = text.indexOf(key);
    check(inPlace == text.left(pos) + text.mid(pos + key.size() + 29), "the key goes with 29 characters");

    int lineStart = pos;
    while (lineStart > 0 && text.at(lineStart - 1) == QLatin1Char(' '))
        --lineStart;
    if (lineStart > 0 && text.at(lineStart - 1) != QLatin1Char('\n'))
        return;
    if (text.mid(pos + key.size(), 3) != QLatin1String(": \""))
        return;
    const int valueStart = pos + key.size() + 3;
    const int valueEnd = text.indexOf(QLatin1Char('"'), valueStart);
    if (valueEnd <= valueStart || valueEnd - valueStart > 26)
        return;
    const QString value = text.mid(valueStart, valueEnd - valueStart);
    if (value.startsWith(QLatin1Char(' ')) || value.contains(QLatin1Char('\n')))
        return;  // such a value could reappear where the two ends of the cut meet
    check(inPlace.count(value) < text.count(value), "a short password does not reach the log");
}

// Strictly, the text as a secret of any length in every kind of place: a nested request field, a
// reply's own fields, list entries. The masked text is the text of the same message with masks in
// those places, and the secret, as the debug text would write it, is nowhere in it.
void checkStrictMasking(const QString& text)
{
    const std::string secret = H::toStdString(text);
    client::LoginReq login;
    login.mutable_client_base_info()->set_name("user");
    login.mutable_client_base_info()->set_password(secret);
    client::ApplyForVmResp desktop;
    desktop.set_password(secret);
    desktop.set_spice_password(secret + secret);
    client::LoginResp pools;
    pools.add_pool_list()->set_accesspassword(secret);
    pools.add_pool_list()->set_accesspassword(secret);
    client::ModifyPasswordReq change;
    change.set_password_new(secret);
    client::DeviceConfigInfoReq written;  // how the debug text writes the secret: its one field
    written.set_ip(secret);
    const QString shown = H::fromStdString(written.DebugString()).section(QLatin1Char('"'), 1, -1).section(QLatin1String("\"\n"), 0, 0);

    const std::string mask = VdiDesktopGrpcWorker::kSecretMask;
    client::LoginReq maskedLogin = login;
    maskedLogin.mutable_client_base_info()->set_password(mask);
    client::ApplyForVmResp maskedDesktop = desktop;
    maskedDesktop.set_password(mask);
    maskedDesktop.set_spice_password(mask);
    client::LoginResp maskedPools = pools;
    for (auto& pool : *maskedPools.mutable_pool_list())
        pool.set_accesspassword(mask);
    client::ModifyPasswordReq maskedChange;
    maskedChange.set_password_new(mask);
    const std::pair<const google::protobuf::Message*, const google::protobuf::Message*> cases[] = {
        {&login, &maskedLogin}, {&desktop, &maskedDesktop}, {&pools, &maskedPools}, {&change, &maskedChange}};
    for (const auto& one : cases) {
        const QString masked = VdiDesktopGrpcWorker::maskedDebugString(*one.first);
        check(masked == H::fromStdString(one.second->DebugString()), "strictly, every secret field is masked, the rest kept");
        if (!shown.isEmpty() && !H::fromStdString(one.second->DebugString()).contains(shown))
            check(!masked.contains(shown), "strictly, no secret of any length reaches the log");
    }
}

} // namespace

std::vector<vdifuzz::Seed> vdifuzz::seeds()
{
    return {
        {"redaction-login", "client_base_info {\n  name: \"demo-user\"\n  password: \"demo-password\"\n"
                            "  domain: \"vdi.local\"\n}\n"},
        {"redaction-modify", "password_new: \"new-secret-2024\"\nspice_password: \"spice-7f3a\"\n"},
        {"strict-long-secret", "a-password-far-longer-than-the-twenty-six-characters-that-are-cut"},
        {"strict-escaped-secret", "quote\" back\\slash \xe5\xbc\xa0"},
        {"text-utf8", "\xe5\xbc\xa0\xe4\xb8\x89 demo-user \xe9\xbb\x91\xe5\xb1\x8f"},
    };
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<int>(size));
    checkText(text);
    checkRedaction(text);
    checkStrictMasking(text);
    return 0;
}
