// Facade request of the one-key help.
#include "vdidesktopgrpcthread.h"

#include "vdidesktopgrpcthread_wiring.h"
#include "vdidesktopgrpcworker.h"

#include "vdilog.h"

// The report is the user's words alone: nothing of the cached identity is added.
void VdiDesktopGrpcThread::sendUserAskInfo(const QString& userMac, const QString& realName, const QString& phoneNumber,
                                           const QString& email, const QString& problemType,
                                           const QString& problemDesc, const int& getLog,
                                           const QString& screenShotUrl, const QString& ip, const QString& vmIp)
{
    tagOneKeyHelpInfoRequest request;
    request.userMac = userMac;
    request.realName = realName;
    request.phoneNumber = phoneNumber;
    request.email = email;
    request.problemType = problemType;
    request.problemDesc = problemDesc;
    request.getLog = getLog;
    request.screenShotUrl = screenShotUrl;
    request.ip = ip;
    request.vmIp = vmIp;
    VDI_INFO << "emit to send user ask help info.";
    emit mySendUserAskHelpInfo(request);
}

void vdiwiring::connectHelp(VdiDesktopGrpcThread& facade, VdiDesktopGrpcWorker& worker)
{
    using T = VdiDesktopGrpcThread;
    using W = VdiDesktopGrpcWorker;
    // One-key help.
    QObject::connect(&facade, &T::mySendUserAskHelpInfo, &worker, &W::sendUserAskHelpInfo);
    QObject::connect(&worker, &W::sendUserAskHelpInfoResult, &facade, &T::SendUserAskHelpInfoResult);
}
