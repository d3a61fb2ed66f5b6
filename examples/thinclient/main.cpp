// vdi-thinclient-example: a small thin client on libvdidesktopgrpc. Try it against the simulator:
//   vdi-simulator &    # prints its port and the pem file to trust
//   vdi-thinclient-example
// and log in as demo-user / demo-password.
#include "thinclientwindow.h"

#include <QApplication>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    ThinClientWindow window;
    window.show();
    return app.exec();
}
