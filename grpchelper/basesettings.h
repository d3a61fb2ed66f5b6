// Small stand-in for the terminal's settings library: only the server type enumeration that the
// worker prints in its connection log. 0 is a direct controller deployment, 1 an access gateway.
#pragma once

#include <QObject>

class BaseSettings
{
    Q_GADGET
public:
    enum ServerType {
        Controller = 0,
        Gateway = 1,
    };
    Q_ENUM(ServerType)
};
