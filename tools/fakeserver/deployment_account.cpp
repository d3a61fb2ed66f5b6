// The account: password checks and changes, and the QR login codes.
#include "deployment_answers.h"

namespace vdifake {

using namespace detail;

namespace {

// CheckPassword and CheckAndSaveLdapPassword alike: name and password against one set of users.
bool answerCredentialCheck(const RecordedCall& call, const std::map<std::string, std::string>& users,
                           Script* answer)
{
    client::CheckPasswordReq request;
    if (!parseRequest(call, &request, "password check", answer))
        return true;
    client::CheckPasswordResp reply;
    const client::ClientBaseInfo& base = request.client_base_info();
    if (!passwordMatches(users, base.name(), base.password()))
        setWrongCredentials(reply.mutable_error());
    return answerWith(reply, answer);
}

} // namespace

bool SimulatedDeployment::answerCheckPassword(const RecordedCall& call, Script* answer)
{
    return answerCredentialCheck(call, m_users, answer);
}

bool SimulatedDeployment::answerCheckLdapPassword(const RecordedCall& call, Script* answer)
{
    return answerCredentialCheck(call, m_ldapUsers, answer);
}

bool SimulatedDeployment::answerModifyPassword(const RecordedCall& call, Script* answer)
{
    client::ModifyPasswordReq request;
    if (!parseRequest(call, &request, "password change", answer))
        return true;
    client::ModifyPasswordResp reply;
    const client::ClientBaseInfo& base = request.client_base_info();
    if (!passwordMatches(m_users, base.name(), base.password()))
        setWrongCredentials(reply.mutable_error());
    else if (request.password_new().empty())
        setError(reply.mutable_error(), NewPasswordMissing, "新密码不能为空", "the new password is empty");
    else
        m_users[base.name()] = request.password_new();
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerGetCode(const RecordedCall& call, Script* answer)
{
    client::CodeReq request;
    if (!parseRequest(call, &request, "login code", answer))
        return true;
    client::CodeResp reply;
    const std::string ticket = m_config->qr_login().ticket_prefix() + std::to_string(++m_codeCounter);
    m_openTickets.insert(ticket);
    reply.set_codesource(request.codesource());
    reply.set_codetype(request.codetype());
    reply.set_ticket(ticket);
    reply.set_qrcodeurl(m_config->qr_login().url_prefix() + ticket);
    return answerWith(reply, answer);
}

} // namespace vdifake
