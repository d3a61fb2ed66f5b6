// Conversions of the one-key help.
#include "vdidesktopgrpchelper.h"

void VdiDesktopGrpcHelper::toOneKeyHelpReq(const tagOneKeyHelpInfoRequest& request, client::OnekeyHelpReq& message)
{
    message.set_usermac(toStdString(request.userMac));
    message.set_realname(toStdString(request.realName));
    message.set_phonenumber(toStdString(request.phoneNumber));
    message.set_email(toStdString(request.email));
    message.set_problemtype(toStdString(request.problemType));
    message.set_problemdesc(toStdString(request.problemDesc));
    message.set_getlog(request.getLog);
    message.set_screenshoturl(toStdString(request.screenShotUrl));
    message.set_ip(toStdString(request.ip));
    message.set_vmip(toStdString(request.vmIp));
}

void VdiDesktopGrpcHelper::fromOneKeyHelpResq(const client::OnekeyHelpResp& message, tagOneKeyHelpInfoReply& reply)
{
    grpc2ErrorData(message.error(), reply.error);
    reply.taskId = message.taskid();
}
