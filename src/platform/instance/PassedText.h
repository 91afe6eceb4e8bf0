#pragma once

#include <QString>

#include <optional>

namespace ostrel {

/// A text in a file that has no name, for passing it to another process. It exists in memory only.
class PassedText
{
public:
    explicit PassedText(const QString &text);
    PassedText(const PassedText &) = delete;
    PassedText &operator=(const PassedText &) = delete;
    ~PassedText();

    /// Below zero when the system refused.
    int descriptor() const { return m_descriptor; }

    /// What is in such a file, whoever made it. Never waits: a pipe, or anything else that is no file, is not read.
    /// @return nothing for that, for a text that is too long, or for one that is not UTF-8
    static std::optional<QString> readFrom(int descriptor);

private:
    int m_descriptor;
};

} // namespace ostrel
