// The library's log lines behave like qDebug() and qInfo(): context of the line's place, compiled
// out by QT_NO_DEBUG_OUTPUT, and nothing built for a level that is switched off.
#define QT_MESSAGELOGCONTEXT
#define QT_NO_DEBUG_OUTPUT

#include "testsupport.h"
#include "vdilog.h"

namespace {
struct Line {
    QtMsgType type;
    QString text;
    QByteArray file;
    int line;
    QByteArray function;
};
QList<Line> g_lines;

void keep(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    g_lines.append({type, text, QByteArray(context.file), context.line, QByteArray(context.function)});
}

int g_built = 0;
QString built(const char* text)
{
    ++g_built;
    return QString::fromLatin1(text);
}
} // namespace

class TestLog : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void lineCarriesItsPlace();
    void offLevelsBuildNothing();
};

void TestLog::init()
{
    g_lines.clear();
    g_built = 0;
    qInstallMessageHandler(keep);
}

void TestLog::cleanup()
{
    qInstallMessageHandler(nullptr);
    QLoggingCategory::setFilterRules(QString());
}

void TestLog::lineCarriesItsPlace()
{
    const int line = __LINE__ + 1;
    VDI_LOG_IN(QtInfoMsg, "someHandler") << "text" << 7;
    QCOMPARE(g_lines.size(), 1);
    QCOMPARE(g_lines[0].type, QtInfoMsg);
    QCOMPARE(g_lines[0].text, QStringLiteral("[ someHandler ] text 7"));
    QCOMPARE(g_lines[0].file, QByteArray(__FILE__));
    QCOMPARE(g_lines[0].line, line);
    QVERIFY2(g_lines[0].function.contains("lineCarriesItsPlace"), g_lines[0].function.constData());
}

// Debug lines are compiled out, info lines switched off: neither builds its text.
void TestLog::offLevelsBuildNothing()
{
    QLoggingCategory::setFilterRules(QStringLiteral("*.info=false"));
    VDI_LOG_IN(QtDebugMsg, "someHandler") << built("debug");
    VDI_DEBUG << built("debug");
    VDI_LOG_IN(QtInfoMsg, "someHandler") << built("info");
    VDI_WARNING << built("warning");
    QCOMPARE(g_built, 1);
    QCOMPARE(g_lines.size(), 1);
    QCOMPARE(g_lines[0].type, QtWarningMsg);
    QCOMPARE(g_lines[0].text, QStringLiteral("[ offLevelsBuildNothing ] \"warning\""));
}

VDI_TEST_MAIN(TestLog)
#include "tst_log.moc"
