// The applications: the remote applications published from terminal servers, the SaaS
// applications and who may open them; and the share terminals, to which a desktop is handed
// or on which a user logs in, every such call kept as a record.
#include "deployment_answers.h"

#include "common/common_messages.pb.h"

namespace vdifake {

using namespace detail;

namespace {

// Where the catalogues' icons are; the icon's stem and ".png" are appended.
const char* const kIconUrl = "https://127.0.0.1:8443/icons/";

void setNoSuchShareTerminal(common::ErrorData* error)
{
    setError(error, SimulatedDeployment::NoSuchShareTerminal, "共享终端不存在", "no such share terminal");
}

// The entry of a list whose `key` is `name`, or null.
template <class T>
const T* findEntry(const google::protobuf::RepeatedPtrField<T>& list, const std::string& (T::*key)() const,
                   const std::string& name)
{
    for (const T& entry : list) {
        if (name == (entry.*key)())
            return &entry;
    }
    return nullptr;
}

std::string iconUrl(const std::string& stem)
{
    return std::string(kIconUrl) + stem + ".png";
}

} // namespace

// ---- Application catalogues ----------------------------------------------------------------

bool SimulatedDeployment::answerRemoteAppList(const RecordedCall& call, Script* answer)
{
    client::LoginReq request;
    if (!parseRequest(call, &request, "remote application list", answer))
        return true;
    client::RemoteAppListResp reply;
    const std::string user = callerOf(request.client_base_info());
    for (const config::RemoteApp& app : m_config->remote_app()) {
        if (!permitted(app.users(), user))
            continue;
        client::RemoteAppInfo* item = reply.add_app_list();
        item->set_displayname(app.display_name());
        item->set_iconurl(iconUrl(app.alias()));
        item->set_type(app.type());
    }
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerConnectAppInfo(const RecordedCall& call, Script* answer)
{
    client::RemoteAppInfoReq request;
    if (!parseRequest(call, &request, "remote application", answer))
        return true;
    client::RemoteAppInfoResp reply;
    const config::RemoteApp* app =
        findEntry(m_config->remote_app(), &config::RemoteApp::display_name, request.displayname());
    const std::string& user = request.username();
    if (!app) {
        setError(reply.mutable_error(), NoSuchRemoteApp, "远程应用不存在", "no such remote application");
        return answerWith(reply, answer);
    }
    if (!permitted(app->users(), user)) {
        setError(reply.mutable_error(), RemoteAppRefused, "无权访问该应用", "you may not open this application");
        return answerWith(reply, answer);
    }
    reply.set_appid("app-" + app->alias());
    reply.set_fulladdress("rdp://" + app->host() + ":3389/" + app->alias());
    reply.set_iconurl(iconUrl(app->alias()));
    reply.set_displayname(app->display_name());
    reply.set_alias(app->alias());
    // The watermark names whoever the application was handed to.
    fillControlPolicy(reply.mutable_control_policy(), app->keep_data_in(),
                      user.empty() ? std::string("Internal") : "Internal - " + user, app->watermark_font_size());
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerSaasAppList(const RecordedCall& call, Script* answer)
{
    client::ClientBaseInfo request;
    if (!parseRequest(call, &request, "SaaS application list", answer))
        return true;
    // The whole catalogue, also the applications the caller may not open: querySaasApp tells.
    client::SaasAppListResp reply;
    for (const config::SaasApp& app : m_config->saas_app()) {
        client::SaasAppInfo* item = reply.add_app_list();
        item->set_appname(app.name());
        item->set_iconurl(iconUrl(app.icon()));
        item->set_appaddress(app.address());
        item->set_description(app.description());
        item->set_ssoprotocol(app.sso_protocol());
    }
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerSaasApp(const RecordedCall& call, Script* answer)
{
    client::SaasAppReq request;
    if (!parseRequest(call, &request, "SaaS application", answer))
        return true;
    common_message::VoidResp reply;
    const config::SaasApp* app = findEntry(m_config->saas_app(), &config::SaasApp::name, request.saasappinfo().appname());
    if (!app)
        setError(reply.mutable_error(), NoSuchSaasApp, "SaaS应用不存在", "no such SaaS application");
    else if (!permitted(app->users(), callerOf(request.clientbaseinfo())))
        setError(reply.mutable_error(), SaasAppRefused, "无权访问该应用", "you may not open this application");
    return answerWith(reply, answer);
}

// ---- Share terminals -----------------------------------------------------------------------

bool SimulatedDeployment::answerShareTerminalInfo(const RecordedCall& call, Script* answer)
{
    client::ShareTerminalInfoReq request;
    if (!parseRequest(call, &request, "share terminal list", answer))
        return true;
    client::ShareTerminalInfoResp reply;
    for (const config::ShareTerminal& terminal : m_config->share_terminal()) {
        client::ShareTerminalInfo* item = reply.add_terminal_list();
        item->set_device_id(terminal.device_id());
        item->set_terminal_share_name(terminal.share_name());
    }
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerShareTerminalTransfer(const RecordedCall& call, Script* answer)
{
    client::TransDeskToShareTerminalReq request;
    if (!parseRequest(call, &request, "share terminal transfer", answer))
        return true;
    common::ErrorData reply;
    if (!findEntry(m_config->share_terminal(), &config::ShareTerminal::device_id, request.dst_device_id()))
        setNoSuchShareTerminal(&reply);
    else if (!findDesktop(0, request.vm_uuid()))
        setNoSuchDesktop(&reply);

    ShareTerminalTransfer transfer;
    transfer.fromDevice = QString::fromStdString(request.device_id());
    transfer.vmUuid = QString::fromStdString(request.vm_uuid());
    transfer.toDevice = QString::fromStdString(request.dst_device_id());
    transfer.vdpFileBytes = static_cast<int>(request.vdp_file_data().size());
    transfer.errorCode = reply.error_code();
    keepRecord(m_recordsMutex, m_transfers, m_onTransfer, transfer);
    return answerWith(reply, answer);
}

bool SimulatedDeployment::answerShareTerminalLogin(const RecordedCall& call, Script* answer)
{
    client::LoginOakdeskOnShareTerminalReq request;
    if (!parseRequest(call, &request, "share terminal login", answer))
        return true;
    common::ErrorData reply;
    if (!findEntry(m_config->share_terminal(), &config::ShareTerminal::device_id, request.device_id()))
        setNoSuchShareTerminal(&reply);
    else if (!passwordMatches(m_users, request.username(), request.password()))
        setWrongCredentials(&reply);

    ShareTerminalLogin login;
    login.device = QString::fromStdString(request.device_id());
    login.userName = QString::fromStdString(request.username());
    login.errorCode = reply.error_code();
    keepRecord(m_recordsMutex, m_shareLogins, m_onShareLogin, login);
    return answerWith(reply, answer);
}

} // namespace vdifake
