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
//   ex_pool_list pool, one to three desktops each). A user's desktops are made at the first
//   login, always the same ones for the same user, and live on with what was done to them
//   since: a later login or a refresh (refresh_flag "1") shows their present names, states
//   and snapshots.
// - The desktops. A call names one by client_base_info.vmUuid (content.vmUuid in Snapshot
//   and ReportSuccess; target_vm in USBNotify, vm_uuid in reportRedirectStatus; VmReq in
//   queryVmDetailInfo), else by its vm_id; a desktop no login has listed is answered
//   error { error_code: NoSuchDesktop, zh and en text }. Each desktop has a state (running,
//   shutdown or suspended), a host (host ip, spice port), a name and snapshots.
//   /client.ClientCore/OperateForVm: op_type as in DesktopOperation; answers the desktop's
//   VmInfo, its host ip and, while it runs, its spice port. RecoverVm puts a desktop back to
//   its template: running, no snapshots, progress 100. Snapshot: op_type as in
//   SnapshotOperation; every success answers the snapshot_list as it then stands; a pool
//   without snapshots (extend_op.snapshot 0) lists them but refuses the others.
//   ModifyVmName renames the desktop (1 to 64 bytes). ApplyForVm hands out a desktop of the
//   caller's pool (id, else pool_name): the one the identity names, else the first free one;
//   it starts it and answers the VmInfo, host_ip, host_ips, the account (name, password,
//   spice_password, user_group). The caller is client_base_info.name (device_id when empty)
//   and must have logged in. ApplyForDeviceInfo lists the desktop's network devices,
//   queryVmDetailInfo its memory (MB) and CPU figures. ReportSuccess marks the desktop in use
//   (vm_is_used "1"); it and USBNotify want a running desktop. reportRedirectStatus answers OK
//   for a known desktop. RegisterDevice answers a register_id, the same one for the same
//   device (device_id, else mac).
// - setApplyOverruns(n): the next n ApplyForVm calls end DEADLINE_EXCEEDED at once, as when
//   the controller takes too long to prepare a desktop.
// - Gateway mode only:
//   /gateway.GatewayCore/CheckAuthStatus answers auth_status 0 when the call's
//   "gatewayaccesstoken" metadata is a token this deployment issued, else 1.
//   /gateway.GatewayCore/LoginGateway checks the gateway users (client_base_info.name and
//   .password): a fresh "gw-token-<n>" with its due date, or an empty token and
//   error { error_code: 2 error_msg_zh: "网关用户名或密码错误" }.
//   Every /client.ClientCore/ method but the discovery ones (WhoAreYou, QueryNodes,
//   queryAgentUseControllerIp, queryDeviceConfigInfo) and Heartbeat must carry an issued
//   token; without one the call ends UNAUTHENTICATED "the gateway wants a token". With one,
//   Login and the desktop calls are answered as above and the other methods by their
//   scripts.
// Methods not listed keep their scripts.
//
// Threading and lifetime: the responders run on the server's threads, one at a time (the
// server calls them under its state lock), and they are the only code that touches the
// deployment's state once it is installed (the issued tokens, the desktops, the registered
// devices), so that state needs no lock of its own. Configure the users before install(),
// not afterwards; setApplyOverruns() may be called at any time. The object must outlive the
// server's use of it: keep it alive until the FakeServer is destroyed, or until its
// responders are cleared.

#include <QString>

#include <atomic>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace client {
class LoginResp;
class Vm;
class VmInfo;
} // namespace client

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

    // OperateForVm's op_type.
    enum DesktopOperation {
        QueryDesktop = 0,       // no change; the desktop as it stands, with its connection data
        StartDesktop = 1,       // a shut down or suspended desktop runs
        ShutDownDesktop = 2,
        RebootDesktop = 3,      // wants a running desktop
        DisconnectSession = 4,  // the client's session ends (not in use); wants a running desktop
        PowerOffDesktop = 5,
    };
    // Snapshot's op_type.
    enum SnapshotOperation {
        CreateSnapshot = 1,  // name (unique on the desktop) and description
        DeleteSnapshot = 2,  // by name
        RevertSnapshot = 3,  // by name
        ListSnapshots = 4,
    };
    // The error codes of the desktop calls (1 to 3 are the login's).
    enum DesktopError {
        NoSuchDesktop = 10,
        UnsupportedOperation = 11,
        DesktopNotRunning = 12,
        SnapshotsNotAllowed = 13,
        SnapshotNameMissing = 14,
        SnapshotExists = 15,
        NoSuchSnapshot = 16,
        InvalidDesktopName = 17,
        NoSuchPool = 18,
        DesktopNotInPool = 19,
        NotLoggedIn = 20,
        DeviceIdMissing = 21,
    };

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

    // The next `count` ApplyForVm calls (past the gateway's token check) end with
    // DEADLINE_EXCEEDED at once; 0 ends that. Safe while the server runs.
    void setApplyOverruns(int count);
    int applyOverrunsLeft() const;

    // Sets the responders of `mode` ("controller" or "gateway") on the server. Unknown
    // modes install the controller's answers.
    void install(FakeServer& server, const QString& mode);

private:
    struct Desktop {
        int64_t id = 0;
        std::string uuid;
        std::string owner;    // the user whose login listed it
        size_t pool = 0;      // its pool among the deployment's pools
        uint32_t seed = 0;    // what its made-up figures are drawn from
        std::string name;
        std::string status;   // "running", "shutdown" or "suspended"
        bool inUse = false;   // a client has reported a connection to it
        std::string mac;
        std::string ip;
        std::string hostIp;
        int spicePort = 0;
        std::vector<std::pair<std::string, std::string>> snapshots;  // name, description
    };

    using Answer = bool (SimulatedDeployment::*)(const RecordedCall& call, Script* answer);

    bool answerLogin(const RecordedCall& call, Script* answer);
    bool answerOperateForVm(const RecordedCall& call, Script* answer);
    bool answerRecoverVm(const RecordedCall& call, Script* answer);
    bool answerSnapshot(const RecordedCall& call, Script* answer);
    bool answerModifyVmName(const RecordedCall& call, Script* answer);
    bool answerApplyForVm(const RecordedCall& call, Script* answer);
    bool answerApplyForDeviceInfo(const RecordedCall& call, Script* answer);
    bool answerQueryVmDetailInfo(const RecordedCall& call, Script* answer);
    bool answerRegisterDevice(const RecordedCall& call, Script* answer);
    bool answerReportSuccess(const RecordedCall& call, Script* answer);
    bool answerUsbNotify(const RecordedCall& call, Script* answer);
    bool answerRedirectStatus(const RecordedCall& call, Script* answer);
    bool answerCheckAuthStatus(const RecordedCall& call, Script* answer);
    bool answerLoginGateway(const RecordedCall& call, Script* answer);
    // For a guarded method: an UNAUTHENTICATED answer when the call has no issued token.
    bool refuseWithoutToken(const RecordedCall& call, Script* answer) const;
    bool hasIssuedToken(const RecordedCall& call) const;

    // Makes the user's desktops at the first login; later logins find them as they are.
    void provideDesktops(const std::string& user);
    // By uuid when it is given, else by id; null when no login has listed it.
    Desktop* findDesktop(int64_t id, const std::string& uuid);
    // The user's pools and their desktops as they now stand.
    void fillPools(const std::string& user, client::LoginResp* reply) const;
    static void fillVm(const Desktop& desktop, client::Vm* vm);
    static void fillVmInfo(const Desktop& desktop, client::VmInfo* vm);

    std::map<std::string, std::string> m_users;         // name -> password
    std::map<std::string, std::string> m_gatewayUsers;  // name -> password
    bool m_gatewayMode = false;

    // Touched only inside the responders (serialized by the server's lock).
    std::set<std::string> m_issuedTokens;
    int m_tokenCounter = 0;
    std::map<int64_t, Desktop> m_desktops;                       // by id
    std::map<std::string, int64_t> m_desktopIds;                 // uuid -> id
    std::map<std::string, std::vector<int64_t>> m_userDesktops;  // user -> ids, as listed
    std::map<std::string, int64_t> m_registeredDevices;          // device id or mac -> register id
    int64_t m_nextRegisterId = 5001;
    unsigned m_detailQueries = 0;  // moves the load figures a little from query to query

    std::atomic<int> m_applyOverruns{0};
};

} // namespace vdifake
