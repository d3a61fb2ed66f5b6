// Small stand-in for the terminal's settings library: only the server type enumeration that the
// worker prints in its connection log. 0 is a direct controller deployment, 1 an access gateway.
//
// Applications link the real settings library, whose class has this name: ours stays in a
// namespace of its own, is not exported and not installed, so the two never meet.
#pragma once

#include <QObject>

namespace vdiinternal {

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

} // namespace vdiinternal
