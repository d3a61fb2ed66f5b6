// Shell commands as the terminal runs them: `sh -c` with the command, read-write. Internal to the
// library: not installed.
#pragma once

#include <QString>

namespace vdishell {

// Standard output of the command, trimmed, up to its first NUL byte, once it has ended or the
// limit has passed (-1: no limit). A command that fails, hangs past the limit or prints nothing
// gives empty text.
QString output(const QString& command, int timeoutMs);

// Runs the command and waits for it up to the limit; its outcome is of no interest.
void run(const QString& command, int timeoutMs);

// One shell word: the text in single quotes, an embedded quote written as '\''.
QString quoted(const QString& text);

} // namespace vdishell
