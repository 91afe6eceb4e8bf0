#pragma once

#include <QDir>
#include <QProcessEnvironment>
#include <QString>
#include <optional>

namespace ostrel {

/// Where the observer's interpreter is looked for: `bin/node` below the observer's folder, else PATH, else the folders
/// of package managers that a desktop session's own PATH often lacks.
namespace NodeSearch {

/// The PATH of a child that has to look for node.
QString path(const QProcessEnvironment &environment);

/// `bin/node` below the observer's folder, where it can be run.
std::optional<QString> privateNode(const QDir &root);

/// The node that the observer would run with. @param root also what relative entries of PATH start from
std::optional<QString> find(const QDir &root, const QProcessEnvironment &environment);

} // namespace NodeSearch
} // namespace ostrel
