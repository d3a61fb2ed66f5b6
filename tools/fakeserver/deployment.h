#pragma once

// A simulated deployment on top of a FakeServer: a controller with users, pools and desktops,
// applications and share terminals, and in gateway mode an access gateway on the same port that
// lets no one past it without a token it issued. It answers from the state it keeps, so a call
// sees what the calls before it changed; the methods it does not answer keep their scripts
// (apply the scenario to the server, then install() the deployment on top).
//
// What it holds is a config::Deployment (deployment.proto), the "deployment" block of a scenario
// file: tools/simulator/scenarios/README.md says what a deployment answers. The answers
// (deployment_*.cpp) run on the server's threads, one at a time under its lock, and alone touch
// the state once it is installed; the records have a lock of their own. Configure it before
// install(), and keep it alive until the FakeServer is destroyed or its responders are cleared.

#include <QString>
#include <QStringList>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
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

namespace config {
class Deployment;
class Pool;
} // namespace config

class FakeServer;
struct RecordedCall;
struct Script;

class SimulatedDeployment {
public:
    static const char* const kDefaultUserName;         // "demo-user"
    static const char* const kDefaultUserPassword;     // "demo-password"
    static const char* const kDefaultGatewayUserName;  // "gw-user"
    static const char* const kDefaultGatewayPassword;  // "gw-password"
    static const char* const kDefaultLdapUserName;     // "ldap-user"
    static const char* const kDefaultLdapPassword;     // "ldap-password"

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
    // The error codes of the password calls; a wrong name or password is the login's code.
    enum PasswordError {
        WrongCredentials = 1,
        NewPasswordMissing = 30,  // ModifyPassword with an empty password_new
    };
    // The error codes of the application and share terminal calls; an unknown desktop is
    // NoSuchDesktop and wrong credentials are WrongCredentials.
    enum ApplicationError {
        NoSuchRemoteApp = 40,      // getConnectAppInfo with a displayName not in the catalogue
        NoSuchSaasApp = 41,        // querySaasApp with an appName not in the catalogue
        SaasAppRefused = 42,       // querySaasApp: the caller may not open that application
        NoSuchShareTerminal = 43,  // a transfer to, or a login on, a terminal not listed
        RemoteAppRefused = 44,     // getConnectAppInfo: the caller may not open that application
    };
    // The codes of a help upload.
    enum HelpUploadError {
        HelpUploadWithoutMeta = 50,  // the first message was not the meta message
        HelpUploadNotZip = 51,       // what came in the chunks is no readable zip
    };

    // A desktop handed to a share terminal, as recorded; refused transfers are recorded too.
    struct ShareTerminalTransfer {
        QString fromDevice;    // device_id: the terminal that hands the desktop on
        QString vmUuid;
        QString toDevice;      // dst_device_id: the share terminal
        int vdpFileBytes = 0;  // the size of vdp_file_data; the content is not kept
        int errorCode = 0;     // what the call was answered; 0: done
    };
    // A login on a share terminal, as recorded; the password is never kept.
    struct ShareTerminalLogin {
        QString device;    // device_id: the share terminal
        QString userName;
        int errorCode = 0;
    };

    // A help report, as recorded.
    struct HelpReport {
        int64_t taskId = 0;  // what it was answered
        QString realName;
        QString problemType;
        int getLog = 0;
        QString screenShotUrl;
        QString ip;
        int useGateway = 0;
    };
    // A help upload, as recorded: the zip put together from its chunks.
    struct HelpUpload {
        int64_t taskId = 0;
        QString fileName;
        QString fileType;
        int64_t bytes = 0;  // of the zip, all chunks together
        int chunks = 0;
        QStringList entries;  // the zip's entries, as it lists them
        int code = 0;         // what the upload was answered; 0: a readable zip
    };

    // The built-in deployment: one controller user, one gateway user and one LDAP user (the
    // defaults above), three pools, the catalogues and two share terminals.
    SimulatedDeployment();
    // The deployment a scenario file describes (see configure()).
    explicit SimulatedDeployment(const config::Deployment& description);
    ~SimulatedDeployment();

    // Replaces what the deployment holds by a description: its users, pools and desktops,
    // applications with their permissions, share terminals, gateway users and tokens, login
    // options and branding, and faults. Call before install(). The description is taken as
    // checked (parseScenarioFile checks the ones it reads).
    void configure(const config::Deployment& description);
    // What is played: the description over the built-in values.
    const config::Deployment& description() const;

    // Called, on a server thread under the server's lock, when a fault takes the server down
    // (down_after_calls): whoever owns the server stops it once the call has been answered
    // and starts it again after `downForMs` (ScenarioServer does). Quick, no call into the
    // FakeServer. Set before install().
    void setDownHandler(std::function<void(const std::string& method, int downForMs)> handler);

    SimulatedDeployment(const SimulatedDeployment&) = delete;
    SimulatedDeployment& operator=(const SimulatedDeployment&) = delete;

    // Adds a controller user, or replaces the password of an existing one.
    void addUser(const QString& name, const QString& password);
    // Replaces every controller user.
    void setUsers(const std::map<QString, QString>& users);
    // The same for the gateway's users.
    void addGatewayUser(const QString& name, const QString& password);
    void setGatewayUsers(const std::map<QString, QString>& users);
    // And for the users of the LDAP directory.
    void addLdapUser(const QString& name, const QString& password);
    void setLdapUsers(const std::map<QString, QString>& users);

    std::map<QString, QString> users() const;
    std::map<QString, QString> gatewayUsers() const;
    std::map<QString, QString> ldapUsers() const;

    // The next `count` ApplyForVm calls (past the gateway's token check) end with
    // DEADLINE_EXCEEDED at once; 0 ends that. Safe while the server runs.
    void setApplyOverruns(int count);
    int applyOverrunsLeft() const;

    // The share terminal calls recorded so far, in the order they came. Safe while the
    // server runs.
    std::vector<ShareTerminalTransfer> shareTerminalTransfers() const;
    std::vector<ShareTerminalLogin> shareTerminalLogins() const;
    // Called with each record as it is made: on a server thread, under the server's lock, so
    // it must be thread-safe and quick and must not call into the FakeServer. Set before
    // install().
    void setShareTerminalObservers(std::function<void(const ShareTerminalTransfer&)> onTransfer,
                                   std::function<void(const ShareTerminalLogin&)> onLogin);

    // The help reports and uploads recorded so far, and observers of them, as for the share
    // terminals above.
    std::vector<HelpReport> helpReports() const;
    std::vector<HelpUpload> helpUploads() const;
    void setHelpObservers(std::function<void(const HelpReport&)> onReport,
                          std::function<void(const HelpUpload&)> onUpload);

    // Sets the responders of `mode` ("controller" or "gateway") on the server, the faults of
    // the description around them, and the described login options and branding as the
    // standing answers of their methods. Unknown modes install the controller's answers. May
    // be called again on a new server (one started again after going down): the deployment's
    // state goes on.
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
    // Method path -> what answers it (none: the responder is cleared).
    using Responders = std::map<std::string, std::function<bool(const RecordedCall& call, Script* answer)>>;

    // The gateway's token check (deployment.cpp). For a guarded method: an UNAUTHENTICATED
    // answer when the call has no issued token.
    bool refuseWithoutToken(const RecordedCall& call, Script* answer) const;
    bool hasIssuedToken(const RecordedCall& call) const;

    // The faults (deployment_faults.cpp): each faulted method's answer wrapped in its faults.
    void wrapWithFaults(Responders* responders);
    // The faults of a method around its answer (`inner`, else the standing script).
    bool answerWithFaults(const RecordedCall& call, Script* answer,
                          const std::function<bool(const RecordedCall&, Script*)>& inner,
                          const std::vector<size_t>& faults);

    // The logins, to the controller and to the gateway (deployment_login.cpp).
    bool answerLogin(const RecordedCall& call, Script* answer);
    bool answerCheckAuthStatus(const RecordedCall& call, Script* answer);
    bool answerLoginGateway(const RecordedCall& call, Script* answer);

    // Passwords and login codes (deployment_account.cpp).
    bool answerCheckPassword(const RecordedCall& call, Script* answer);
    bool answerCheckLdapPassword(const RecordedCall& call, Script* answer);
    bool answerModifyPassword(const RecordedCall& call, Script* answer);
    bool answerGetCode(const RecordedCall& call, Script* answer);

    // The desktops (deployment_desktops.cpp). Makes the user's desktops at the first login;
    // later logins find them as they are.
    void provideDesktops(const std::string& user);
    // By uuid when it is given, else by id; null when no login has listed it.
    Desktop* findDesktop(int64_t id, const std::string& uuid);
    // The user's pools and their desktops as they now stand.
    void fillPools(const std::string& user, client::LoginResp* reply) const;
    void fillVm(const Desktop& desktop, client::Vm* vm) const;
    void fillVmInfo(const Desktop& desktop, client::VmInfo* vm) const;
    size_t poolCount() const;
    const config::Pool& poolOf(const Desktop& desktop) const;

    // The operations on them, their assignment and the reports on them
    // (deployment_operations.cpp).
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

    // The remote and SaaS applications and the share terminals (deployment_applications.cpp).
    bool answerRemoteAppList(const RecordedCall& call, Script* answer);
    bool answerConnectAppInfo(const RecordedCall& call, Script* answer);
    bool answerSaasAppList(const RecordedCall& call, Script* answer);
    bool answerSaasApp(const RecordedCall& call, Script* answer);
    bool answerShareTerminalInfo(const RecordedCall& call, Script* answer);
    bool answerShareTerminalTransfer(const RecordedCall& call, Script* answer);
    bool answerShareTerminalLogin(const RecordedCall& call, Script* answer);

    // One-key help (deployment_help.cpp).
    bool answerHelpReport(const RecordedCall& call, Script* answer);
    bool answerHelpUpload(const RecordedCall& call, Script* answer);

    std::unique_ptr<config::Deployment> m_config;       // the description played
    std::map<std::string, std::string> m_users;         // name -> password; ModifyPassword changes it
    std::map<std::string, std::string> m_smsCodes;      // name -> the code its SMS login wants
    std::map<std::string, std::string> m_gatewayUsers;  // name -> password
    std::map<std::string, std::string> m_ldapUsers;     // name -> password
    bool m_gatewayMode = false;

    // Touched only inside the responders (serialized by the server's lock).
    std::set<std::string> m_issuedTokens;
    int m_tokenCounter = 0;
    int m_codeCounter = 0;
    std::set<std::string> m_openTickets;  // getCode's tickets not yet used by a QR login
    std::map<int64_t, Desktop> m_desktops;                       // by id
    std::map<std::string, int64_t> m_desktopIds;                 // uuid -> id
    std::map<std::string, std::vector<int64_t>> m_userDesktops;  // user -> ids, as listed
    std::map<std::string, int64_t> m_registeredDevices;          // device id or mac -> register id
    int64_t m_nextRegisterId = 5001;
    unsigned m_detailQueries = 0;  // moves the load figures a little from query to query

    std::atomic<int> m_applyOverruns{0};
    int64_t m_nextTaskId = 7001;
    std::vector<int> m_faultCalls;  // calls met by each fault so far; touched in the responders only
    std::function<void(const std::string&, int)> m_onDown;

    // Added to by the responders, read from any thread: guarded by m_recordsMutex alone.
    mutable std::mutex m_recordsMutex;
    std::vector<ShareTerminalTransfer> m_transfers;
    std::vector<ShareTerminalLogin> m_shareLogins;
    std::vector<HelpReport> m_helpReports;
    std::vector<HelpUpload> m_helpUploads;
    // Set before install(), then only called.
    std::function<void(const ShareTerminalTransfer&)> m_onTransfer;
    std::function<void(const ShareTerminalLogin&)> m_onShareLogin;
    std::function<void(const HelpReport&)> m_onHelpReport;
    std::function<void(const HelpUpload&)> m_onHelpUpload;
};

} // namespace vdifake
