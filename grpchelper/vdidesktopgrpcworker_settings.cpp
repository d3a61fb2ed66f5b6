// The gateway settings file: the only state of the library that survives a restart.
#include "vdidesktopgrpcworker.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QStandardPaths>

#include "vdidesktopgrpchelper.h"

namespace {
const QString kGroup = QStringLiteral("GATEWAYINFO");

// The file holds the gateway password in the clear: only its owner may read or write it.
void restrictToOwner(const QString& path)
{
    if (QFile::exists(path))
        QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}
} // namespace

QString VdiDesktopGrpcWorker::getGatewaySettingsFilePath() const
{
    const QString dir =
        QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + QStringLiteral("/gateway");
    if (!QDir(dir).exists())
        QDir().mkdir(dir);
    return dir + QStringLiteral("/gatewaySettings.ini");
}

void VdiDesktopGrpcWorker::getGatewayAuthInfo(QString& user, QString& password)
{
    QSettings settings(getGatewaySettingsFilePath(), QSettings::IniFormat);
    settings.setIniCodec("UTF-8");
    settings.beginGroup(kGroup);
    user = settings.value(QStringLiteral("user")).toString();
    password = settings.value(QStringLiteral("password")).toString();
    settings.endGroup();
}

QString VdiDesktopGrpcWorker::getGatewayToken() const
{
    QSettings settings(getGatewaySettingsFilePath(), QSettings::IniFormat);
    settings.setIniCodec("UTF-8");
    settings.beginGroup(kGroup);
    const QString token = settings.value(QStringLiteral("token")).toString();
    settings.endGroup();
    return token;
}

void VdiDesktopGrpcWorker::saveGatewayInfo()
{
    const QString path = getGatewaySettingsFilePath();
    {
        QSettings settings(path, QSettings::IniFormat);
        settings.setIniCodec("UTF-8");
        settings.beginGroup(kGroup);
        settings.setValue(QStringLiteral("ip"), m_host);
        settings.setValue(QStringLiteral("port"), m_port);
        settings.setValue(QStringLiteral("token"), VdiDesktopGrpcHelper::fromStdString(m_gatewayToken));
        settings.setValue(QStringLiteral("user"), m_gatewayUser);
        settings.setValue(QStringLiteral("password"), m_gatewayPasswd);
        settings.endGroup();
    }
    restrictToOwner(path);
}
