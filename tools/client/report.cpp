#include "report.h"

#include <QJsonDocument>

#include <algorithm>
#include <cstdio>

namespace vdiclient {

namespace {
QString text(const QVariant& value)
{
    if (value.userType() == QMetaType::Bool)
        return value.toBool() ? QStringLiteral("yes") : QStringLiteral("no");
    return value.toString();
}
} // namespace

void Report::field(const QString& key, const QVariant& value)
{
    m_json.insert(key, QJsonValue::fromVariant(value));
    m_lines << QStringLiteral("%1: %2").arg(key, text(value));
}

void Report::table(const QString& key, const QString& title, const std::vector<Row>& rows)
{
    QJsonArray array;
    for (const Row& row : rows) {
        QJsonObject object;
        for (const auto& cell : row)
            object.insert(cell.first, QJsonValue::fromVariant(cell.second));
        array.append(object);
    }
    m_json.insert(key, array);

    m_lines << QStringLiteral("%1 (%2):").arg(title).arg(rows.size());
    if (rows.empty())
        return;
    std::vector<int> widths;
    for (const auto& cell : rows.front())
        widths.push_back(int(cell.first.size()));
    for (const Row& row : rows)
        for (size_t i = 0; i < row.size() && i < widths.size(); ++i)
            widths[i] = std::max(widths[i], int(text(row[i].second).size()));
    const auto line = [&widths](const QStringList& cells) {
        QString out = QStringLiteral("  ");
        for (int i = 0; i < cells.size(); ++i)
            out += i + 1 < cells.size() ? cells[i].leftJustified(widths[size_t(i)] + 2) : cells[i];
        return out;
    };
    QStringList header;
    for (const auto& cell : rows.front())
        header << cell.first;
    m_lines << line(header);
    for (const Row& row : rows) {
        QStringList cells;
        for (const auto& cell : row)
            cells << text(cell.second);
        m_lines << line(cells);
    }
}

void Report::note(const QString& line)
{
    m_lines << line;
}

void Report::failure(int exitCode, const QString& description, const QJsonObject& codes)
{
    QJsonObject error = codes;
    error.insert(QStringLiteral("exitCode"), exitCode);
    error.insert(QStringLiteral("message"), description);
    m_json.insert(QStringLiteral("error"), error);
    m_error = description;
}

void Report::print(bool json) const
{
    QByteArray out;
    if (json)
        out = QJsonDocument(m_json).toJson(QJsonDocument::Indented);
    else if (!m_lines.isEmpty())
        out = (m_lines.join(QLatin1Char('\n')) + QLatin1Char('\n')).toLocal8Bit();
    std::fwrite(out.constData(), 1, size_t(out.size()), stdout);
    std::fflush(stdout);
    if (!m_error.isEmpty())
        std::fputs(QStringLiteral("vdi-client: error: %1\n").arg(m_error).toLocal8Bit().constData(), stderr);
}

} // namespace vdiclient
