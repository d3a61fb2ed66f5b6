#pragma once

// A believable little deployment on top of a FakeServer: a controller with a few users and
// their desktop pools and, in gateway mode, an access gateway on the same port that hands
// out access tokens and lets no one past it without one.
//
//   vdifake::FakeServer server;
//   applyScenario(server, defaultScenario(mode), &error);  // standing answers
//   vdifake::SimulatedDeployment deployment;                // outlives the server's use of it
//   deployment.addUser("alice", "secret");
//   deployment.install(server, mode);                       // dynamic answers on top
//
// What it answers:
// - /client.ClientCore/Login checks the controller users. client_base_info.auth_type "0"
//   (user and password; also when empty) and "3" (LDAP) check name and password, "2" (SMS)
//   checks them and wants a non-empty sms_code, "1" (device login) accepts any non-empty
//   device_id and uses it as the user name. Wrong credentials: status OK and
//   error { error_code: 1 error_msg_zh: "用户名或密码错误" error_msg_en: "wrong user name or
//   password" }. Success: the user's identity and pools (two pool_list pools, one
//   ex_pool_list pool, one to three desktops each), always the same for the same user, so
//   a refresh (refresh_flag "1") answers the same pools.
// - Gateway mode only:
//   /gateway.GatewayCore/CheckAuthStatus answers auth_status 0 when the call's
//   "gatewayaccesstoken" metadata is a token this deployment issued, else 1.
//   /gateway.GatewayCore/LoginGateway checks the gateway users (client_base_info.name and
//   .password): a fresh "gw-token-<n>" with its due date, or an empty token and
//   error { error_code: 2 error_msg_zh: "网关用户名或密码错误" }.
//   Every /client.ClientCore/ method but the discovery ones (WhoAreYou, QueryNodes,
//   queryAgentUseControllerIp, queryDeviceConfigInfo) and Heartbeat must carry an issued
//   token; without one the call ends UNAUTHENTICATED "the gateway wants a token". With one,
//   Login is answered as above and the other methods by their scripts.
// Methods not listed keep their scripts.
//
// Threading and lifetime: the responders run on the server's threads, one at a time (the
// server calls them under its state lock), and they are the only code that touches the
// deployment's state once it is installed (the issued tokens, the counter), so that state
// needs no lock of its own. Configure the users before install(), not afterwards. The
// object must outlive the server's use of it: keep it alive until the FakeServer is
// destroyed, or until its responders are cleared.

#include <QString>

#include <map>
#include <set>
#include <string>

namespace vdifake {

class FakeServer;
struct RecordedCall;
struct Script;

class SimulatedDeployment {
public:
    static const char* const kDefaultUserName;         // "demo-user"
    static const char* const kDefaultUserPassword;     // "demo-password"
    static const char* const kDefaultGatewayUserName;  // "gw-user"
    static const char* const kDefaultGatewayPassword;  // "gw-password"

    // One controller user and one gateway user: the defaults above.
    SimulatedDeployment();

    SimulatedDeployment(const SimulatedDeployment&) = delete;
    SimulatedDeployment& operator=(const SimulatedDeployment&) = delete;

    // Adds a controller user, or replaces the password of an existing one.
    void addUser(const QString& name, const QString& password);
    // Replaces every controller user.
    void setUsers(const std::map<QString, QString>& users);
    // The same for the gateway's users.
    void addGatewayUser(const QString& name, const QString& password);
    void setGatewayUsers(const std::map<QString, QString>& users);

    std::map<QString, QString> users() const;
    std::map<QString, QString> gatewayUsers() const;

    // Sets the responders of `mode` ("controller" or "gateway") on the server. Unknown
    // modes install the controller's answers.
    void install(FakeServer& server, const QString& mode);

private:
    bool answerLogin(const RecordedCall& call, Script* answer);
    bool answerCheckAuthStatus(const RecordedCall& call, Script* answer);
    bool answerLoginGateway(const RecordedCall& call, Script* answer);
    // For a guarded method: an UNAUTHENTICATED answer when the call has no issued token.
    bool refuseWithoutToken(const RecordedCall& call, Script* answer) const;
    bool hasIssuedToken(const RecordedCall& call) const;

    std::map<std::string, std::string> m_users;         // name -> password
    std::map<std::string, std::string> m_gatewayUsers;  // name -> password
    bool m_gatewayMode = false;

    // Touched only inside the responders (serialized by the server's lock).
    std::set<std::string> m_issuedTokens;
    int m_tokenCounter = 0;
};

} // namespace vdifake
