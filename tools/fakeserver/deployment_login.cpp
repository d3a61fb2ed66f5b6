// The logins: to the controller (password, SMS, LDAP, device and QR code logins) and, in
// gateway mode, to the access gateway, which hands out the tokens its token check wants.
#include "deployment_answers.h"

#include "gateway/gateway_core.pb.h"

#include <ctime>

namespace vdifake {

using namespace detail;

bool SimulatedDeployment::answerLogin(const RecordedCall& call, Script* answer)
{
    client::LoginReq request;
    if (!parseRequest(call, &request, "login", answer))
        return true;
    const client::ClientBaseInfo& base = request.client_base_info();
    const std::string& kind = base.auth_type();

    std::string user;
    bool accepted = false;
    const std::string& qrUser = m_config->qr_login().user();
    if (!qrUser.empty() && !base.ticket().empty() && m_openTickets.erase(base.ticket()) > 0) {
        user = qrUser;  // the code was scanned by the QR user
        accepted = true;
    } else if (kind.empty() || kind == "0" || kind == "3") {
        user = base.name();
        accepted = passwordMatches(kind == "3" ? m_ldapUsers : m_users, user, base.password());
    } else if (kind == "2") {
        user = base.name();
        const auto code = m_smsCodes.find(user);
        accepted = !base.sms_code().empty() && (code == m_smsCodes.end() || code->second == base.sms_code())
            && passwordMatches(m_users, user, base.password());
    } else if (kind == "1" && (!m_config->has_device_login() || m_config->device_login())) {
        user = base.device_id();
        accepted = !user.empty();
    } else {
        client::LoginResp reply;
        setError(reply.mutable_error(), 3, "不支持的登录方式", "unsupported login type");
        *answer = replyScript(reply, *answer);
        return true;
    }

    client::LoginResp reply;
    if (!accepted) {
        setWrongCredentials(reply.mutable_error());
        *answer = replyScript(reply, *answer);
        return true;
    }
    const config::LoginAnswer& login = m_config->login();
    reply.set_domain(login.domain());
    reply.set_netbios(login.netbios());
    reply.set_name(user);
    reply.set_userloginname(user);
    reply.set_user_id(10000 + static_cast<int64_t>(stableHash(user) % 90000));
    reply.set_update_interval(login.update_interval());
    reply.set_start_timeout(login.start_timeout());
    reply.set_due_date(login.due_date());
    reply.set_auth_type(kind.empty() ? 0 : std::stoi(kind));
    reply.set_isopenldap(kind == "3" ? 1 : 0);
    reply.set_use_gateway(m_gatewayMode ? 1 : 0);
    provideDesktops(user);
    fillPools(user, &reply);
    *answer = replyScript(reply, *answer);
    return true;
}

bool SimulatedDeployment::answerCheckAuthStatus(const RecordedCall& call, Script* answer)
{
    gateway::CheckAuthStatusResp reply;
    reply.set_auth_status(hasIssuedToken(call) ? 0 : 1);
    reply.set_auth_type("password");
    *answer = replyScript(reply, *answer);
    return true;
}

bool SimulatedDeployment::answerLoginGateway(const RecordedCall& call, Script* answer)
{
    gateway::LoginGatewayReq request;
    if (!parseRequest(call, &request, "gateway login", answer))
        return true;
    const gateway::ClientBaseInfo& base = request.client_base_info();
    gateway::LoginGatewayResp reply;
    const config::Gateway& gateway = m_config->gateway();
    reply.set_domain(gateway.domain());
    if (passwordMatches(m_gatewayUsers, base.name(), base.password())) {
        const std::string token = gateway.token_prefix() + std::to_string(++m_tokenCounter);
        m_issuedTokens.insert(token);
        reply.set_gw_access_token(token);
        reply.set_token_due_date(static_cast<int64_t>(std::time(nullptr)) + gateway.token_lifetime_seconds());
    } else {
        setError(reply.mutable_error(), 2, "网关用户名或密码错误", "wrong gateway user name or password");
    }
    *answer = replyScript(reply, *answer);
    return true;
}

} // namespace vdifake
