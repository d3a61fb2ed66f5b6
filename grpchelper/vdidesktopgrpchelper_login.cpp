// Conversions of the login.
#include "vdidesktopgrpchelper.h"

using H = VdiDesktopGrpcHelper;

void VdiDesktopGrpcHelper::toLoginReq(const tagLoginRequest& request, client::LoginReq& message)
{
    baseInfo2Grpc(request.baseInfo, *message.mutable_client_base_info());
    extendInfo2Grpc(request.extendInfo, *message.mutable_client_extend_info());
}

void VdiDesktopGrpcHelper::fromLoginResp(const client::LoginResp& message, tagLoginReply& reply)
{
    grpc2ErrorData(message.error(), reply.error);
    reply.domain = fromStdString(message.domain());
    reply.netBIOS = fromStdString(message.netbios());
    reply.updateInterval = message.update_interval();
    reply.startTimeout = message.start_timeout();
    reply.authType = message.auth_type();
    reply.name = fromStdString(message.name());
    reply.password = fromStdString(message.password());
    reply.dueDate = message.due_date();
    reply.userExpireTime = message.user_expire_time();
    reply.userId = message.user_id();
    reply.smsAuthIsReLogin = message.smsauthisrelogin();
    reply.smsTimout = message.smstimout();
    reply.isOpenldap = message.isopenldap();
    reply.headShot = fromStdString(message.headshot());
    reply.userLoginName = fromStdString(message.userloginname());
    reply.userPassword = fromStdString(message.userpassword());
    reply.spmIdBinding = message.spmidbinding();

    reply.poolList.reserve(message.pool_list_size() + message.ex_pool_list_size());
    fromRepeated(message.pool_list(), reply.poolList, &H::grpc2PoolInfo);
    fromRepeated(message.ex_pool_list(), reply.poolList, [](const client::PoolInfo& item, tagPoolInfo& pool) {
        grpc2PoolInfo(item, pool);
        pool.isExPool = true;
    });
}
