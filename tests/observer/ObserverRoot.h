#pragma once

#include "base/Files.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace ostrel {

/// An observer's folder with a program in it that reports what it was started with.
class ObserverRoot
{
public:
    QString path(const QString &relative = {}) const { return m_folder.filePath(relative); }

    void write(const QString &relative, const QByteArray &content) const
    {
        ASSERT_TRUE(writeFileAtomically(path(relative), content).has_value());
    }
    void writeProgram(const QString &relative, const QByteArray &content) const
    {
        write(relative, content);
        ASSERT_TRUE(QFile::setPermissions(path(relative), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }

    void makeBundle() const { write(QStringLiteral("dist/observer.mjs"), script); }
    void makeSources() const
    {
        write(QStringLiteral("package.json"), "{}");
        write(QStringLiteral("apps/mac-observer/src/index.ts"), "");
        write(QStringLiteral("node_modules/tsx/dist/cli.mjs"), script);
    }

    /// One line an event: "started", "input <line>", "end of input", "terminated", "ended"
    QList<QByteArray> notes() const
    {
        return readFile(path(QStringLiteral("notes"))).value_or(QByteArray()).split('\n');
    }
    bool hasNote(const char *note) const { return notes().contains(note); }

    /// Its facts are in facts.json from the note "started" on. Asked to end or left alone, it takes its time, as one
    /// that still has a chunk to finish.
    static constexpr const char *script = R"js(
        import { appendFileSync, readFileSync, readdirSync, readlinkSync, writeFileSync } from "node:fs";
        const folder = process.env.OSTREL_TEST_REPORTS;
        const note = (text) => appendFileSync(`${folder}/notes`, `${text}\n`);
        const end = () => setTimeout(() => { note("ended"); process.exit(0); }, 150);
        process.once("SIGTERM", () => { note("terminated"); end(); });
        const links = () => readdirSync("/proc/self/fd").map((number) => {
          try { return readlinkSync(`/proc/self/fd/${number}`); } catch { return ""; }
        });
        console.log("to standard output");
        console.error("to standard error");
        writeFileSync(`${folder}/facts.json`, JSON.stringify({
          pid: process.pid,
          folder: process.cwd(),
          commandLine: readFileSync("/proc/self/cmdline", "utf8").split("\0").slice(0, -1),
          environment: process.env,
          descriptors: links(),
        }));
        let input = "";
        process.stdin.setEncoding("utf8");
        process.stdin.on("data", (piece) => {
          input += piece;
          if (input.endsWith("\n")) note(`input ${input.trimEnd()}`);
        });
        process.stdin.on("end", () => { note("end of input"); end(); });
        note("started");
    )js";

private:
    QTemporaryDir m_folder;
};

} // namespace ostrel
