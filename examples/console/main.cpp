// vdi-console-example: the smallest application of libvdidesktopgrpc. It logs in to a
// controller, lists the user's desktops and stops. Try it against the simulator:
//   vdi-simulator &      # prints its port and the pem file to trust
//   vdi-console-example PEM 127.0.0.1 PORT demo-user demo-password
#include <cstdio>

#include <QCoreApplication>
#include <QTimer>

#include <vdidesktopgrpcthread.h>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 6) {
        std::fprintf(stderr, "usage: vdi-console-example PEM HOST PORT USER PASSWORD\n");
        return 1;
    }
    VdiDesktopGrpcThread grpc;  // the worker's thread starts here
    grpc.initServerType(0);     // a controller; 1 would be an access gateway
    grpc.initConnection(args[1], args[2], ushort(args[3].toUInt()), /*isEnglish=*/true);

    QObject::connect(&grpc, &VdiDesktopGrpcThread::loginResult, &app, [&](LoginReply reply, bool ok) {
        if (!ok) {  // the server's English words when it has some, else the Chinese ones
            const QString text = reply.error.errorMsgEn.isEmpty() ? reply.error.errorMsgZh : reply.error.errorMsgEn;
            std::fprintf(stderr, "login refused (%d): %s\n", reply.error.errorCode, qPrintable(text));
            app.exit(3);
            return;
        }
        for (const tagPoolInfo& pool : qAsConst(reply.poolList)) {
            for (const tagVM& vm : pool.vmList)
                std::printf("%s\t%s\t%s\n", qPrintable(pool.name), qPrintable(vm.vmName), qPrintable(vm.vmStatus));
        }
        app.exit(0);
    });
    QTimer::singleShot(30000, &app, [&app] {  // never wait for ever
        std::fprintf(stderr, "no answer in 30 s\n");
        app.exit(5);
    });
    grpc.login(args[4], args[5], QStringLiteral("0"));
    const int code = app.exec();
    grpc.stop();  // cancels what is still in flight and ends the worker's thread
    return code;
}
