// The library's log line: "[", the function's name, "]" and then the text, as items of one
// QDebug stream in the default category.
//
// The macros behave like qDebug() / qInfo() and friends: they carry file, line and function in
// the message context (where Qt's QT_MESSAGELOG_* macros do), they are compiled out by
// QT_NO_DEBUG_OUTPUT, QT_NO_INFO_OUTPUT and QT_NO_WARNING_OUTPUT, and like qCDebug() they build
// nothing at all when the default category has the level switched off (QT_LOGGING_RULES).
// Internal to the library: not installed.
#pragma once

#include <QDebug>
#include <QLoggingCategory>

// Whether a line of this level would reach the message handler.
inline bool vdiLogEnabled(QtMsgType type)
{
#if defined(QT_NO_DEBUG_OUTPUT)
    if (type == QtDebugMsg)
        return false;
#endif
#if defined(QT_NO_INFO_OUTPUT)
    if (type == QtInfoMsg)
        return false;
#endif
#if defined(QT_NO_WARNING_OUTPUT)
    if (type == QtWarningMsg)
        return false;
#endif
    return QLoggingCategory::defaultCategory()->isEnabled(type);
}

// The stream of one line, its bracketed function name already written.
inline QDebug vdiLogStream(const QMessageLogger& logger, QtMsgType type, const char* function)
{
    QDebug debug = type == QtDebugMsg     ? logger.debug()
                   : type == QtInfoMsg    ? logger.info()
                   : type == QtWarningMsg ? logger.warning()
                                          : logger.critical();
    debug << "[" << function << "]";
    return debug;
}

// A line at a level given as a value (QtMsgType), for code that takes the level as data.
#define VDI_LOG_IN(type, function)                                                                 \
    for (bool vdiLogOn = vdiLogEnabled(type); vdiLogOn; vdiLogOn = false)                          \
    vdiLogStream(QMessageLogger(QT_MESSAGELOG_FILE, QT_MESSAGELOG_LINE, QT_MESSAGELOG_FUNC), type, \
                 function)

#define VDI_DEBUG VDI_LOG_IN(QtDebugMsg, __FUNCTION__)
#define VDI_INFO VDI_LOG_IN(QtInfoMsg, __FUNCTION__)
#define VDI_WARNING VDI_LOG_IN(QtWarningMsg, __FUNCTION__)
#define VDI_CRITICAL VDI_LOG_IN(QtCriticalMsg, __FUNCTION__)
