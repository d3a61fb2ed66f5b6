#pragma once

// What a vdi-client command prints: readable lines and tables, or with --json one JSON document
// holding the same values.

#include <QJsonArray>
#include <QJsonObject>
#include <QStringList>
#include <QVariant>

#include <utility>
#include <vector>

namespace vdiclient {

class Report {
public:
    // A single value, e.g. field("user", "alice").
    void field(const QString& key, const QVariant& value);
    // A table: its rows are objects of the JSON array `key`, and lines of aligned columns.
    using Row = std::vector<std::pair<QString, QVariant>>;
    void table(const QString& key, const QString& title, const std::vector<Row>& rows);
    // A line for people only (not in the JSON document).
    void note(const QString& text);
    // The failure of the command: an "error" object in the JSON document (its exit code, the
    // text and the `codes` behind it), a line on stderr.
    void failure(int exitCode, const QString& text, const QJsonObject& codes = {});

    // The results on stdout, as lines or as one JSON document (that holds the error too); the
    // error on stderr in both forms.
    void print(bool json) const;

private:
    QJsonObject m_json;
    QStringList m_lines;
    QString m_error;
};

} // namespace vdiclient
