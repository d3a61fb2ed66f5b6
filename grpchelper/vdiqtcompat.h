#pragma once

// The few places where Qt 5 and Qt 6 differ for this library, each one function with the same
// behaviour under both. Internal: not installed.

#include <QByteArray>
#include <QMetaType>
#include <QSettings>
#include <QtGlobal>

namespace vdicompat {

// Settings files are UTF-8 ini files: Qt 5 has to be told, Qt 6 reads and writes nothing else.
inline void useUtf8(QSettings& settings)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    settings.setIniCodec("UTF-8");
#else
    Q_UNUSED(settings)
#endif
}

// The meta-type id registered under a name (an alias included), QMetaType::UnknownType when none.
inline int metaTypeIdOf(const char* name)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    return QMetaType::type(name);
#else
    return QMetaType::fromName(QByteArray(name)).id();
#endif
}

} // namespace vdicompat
