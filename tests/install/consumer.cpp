// A tiny application of the installed library: it links, constructs the facade, sees its worker
// thread start and stop, and converts a record through the exported helper.
#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstdio>

#include "vdidesktopgrpchelper.h"
#include "vdidesktopgrpcthread.h"

int main(int argc, char* argv[])
{
    QTemporaryDir home;
    qputenv("HOME", home.path().toUtf8());
    QCoreApplication app(argc, argv);

    VdiDesktopGrpcThread facade;
    facade.setLocalIP(QStringLiteral("10.0.0.7"));
    facade.initServerType(0);
    facade.stop();

    tagHeartbeatRequest request;
    request.vmIp = facade.getLocalIP();
    client::HeartbeatReq message;
    VdiDesktopGrpcHelper::toHeartBeatReq(request, message);
    if (message.vm_ip() != "10.0.0.7") {
        std::fprintf(stderr, "unexpected vm_ip \"%s\"\n", message.vm_ip().c_str());
        return 1;
    }
    std::printf("consumer: facade started and stopped, heartbeat request converted\n");
    return 0;
}
