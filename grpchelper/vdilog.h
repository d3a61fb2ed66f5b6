// The library's log line: "[", the function's name, "]" and then the text, as items of one
// QDebug stream in the default category.
#pragma once

#include <QDebug>

#define VDI_LOG_IN(level, function) level() << "[" << function << "]"

#define VDI_DEBUG VDI_LOG_IN(qDebug, __FUNCTION__)
#define VDI_INFO VDI_LOG_IN(qInfo, __FUNCTION__)
#define VDI_WARNING VDI_LOG_IN(qWarning, __FUNCTION__)
#define VDI_CRITICAL VDI_LOG_IN(qCritical, __FUNCTION__)

// A log stream at a level chosen at run time, for code that takes the level as data.
inline QDebug vdiLog(QtMsgType type, const char* function)
{
    QMessageLogger logger;
    QDebug debug = type == QtDebugMsg     ? logger.debug()
                   : type == QtInfoMsg    ? logger.info()
                   : type == QtWarningMsg ? logger.warning()
                                          : logger.critical();
    debug << "[" << function << "]";
    return debug;
}
