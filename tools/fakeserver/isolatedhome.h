// A home folder of its own for a test or benchmark process, so that nothing it runs touches the
// real Documents folder (the gateway settings) or settings. Make it before the QCoreApplication.
#pragma once

#include <QDir>
#include <QTemporaryDir>

namespace vdifake {

// HOME and the XDG folders point at a fresh temporary folder while alive, which is removed
// afterwards; no proxy of the machine reaches loopback traffic.
class IsolatedHome
{
public:
    IsolatedHome() : m_dir(QDir::tempPath() + QStringLiteral("/vdi-home-XXXXXX"))
    {
        const QByteArray home = m_dir.path().toUtf8();
        qputenv("HOME", home);
        qputenv("XDG_CONFIG_HOME", home + "/.config");
        qputenv("XDG_DATA_HOME", home + "/.local/share");
        qputenv("XDG_CACHE_HOME", home + "/.cache");
        qputenv("XDG_STATE_HOME", home + "/.local/state");
        for (const char* name : {"XDG_DOCUMENTS_DIR", "http_proxy", "https_proxy", "HTTP_PROXY", "HTTPS_PROXY",
                                 "grpc_proxy", "all_proxy", "ALL_PROXY"})
            qunsetenv(name);
    }
    QString path() const { return m_dir.path(); }

private:
    QTemporaryDir m_dir;
};

} // namespace vdifake
