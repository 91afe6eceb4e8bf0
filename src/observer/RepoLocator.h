#pragma once

#include <QString>
#include <optional>

namespace ostrel {

/// Finds the folder that holds the observer. Stateless: what it looks at is given to it.
struct RepoLocator {
    QString environmentOverride; ///< the value of MORAVEL_REPO_ROOT, empty when unset
    QString resourcesDirectory;  ///< `<prefix>/share/ostrel`; empty when the program has none
    QString currentDirectory;
    QString bundleLocation; ///< the install prefix
    QString programPath;    ///< the first command-line argument

    /// The places of the running program.
    static RepoLocator forThisProgram();

    /// An absolute folder path; the first hit wins.
    std::optional<QString> resolveRepoRoot() const;

    static bool isObserverRoot(const QString &folder);
};

} // namespace ostrel
