// vdi-thinclient-example: a small thin client on libvdidesktopgrpc. Try it against the simulator,
// which prints its port and the pem file to trust:
//   vdi-simulator &
//   vdi-thinclient-example --port <port> --pem <file> --user demo-user
// and log in with the password demo-password.
#include "thinclientwindow.h"

#include <QApplication>
#include <QCommandLineParser>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A thin client: log in, pick a desktop, start it, ask for help."));
    parser.addHelpOption();
    parser.addOptions(ThinClientWindow::commandLineOptions());
    parser.process(app);

    ThinClientWindow window;
    window.fillFrom(parser);
    window.show();
    return app.exec();
}
