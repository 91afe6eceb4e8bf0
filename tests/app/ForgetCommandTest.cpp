#include "ArchiveCommandFixture.h"
#include "base/Fault.h"
#include "support/FreePort.h"
#include "support/ScopedVariable.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

using namespace ostrel;
using testing::HasSubstr;

namespace {

const QByteArray forget = "POST /api/forget";

/// A terminal as standard input, at which somebody has typed, until the end of the scope.
class ScopedTerminal
{
public:
    explicit ScopedTerminal(const QByteArray &typed)
        : m_before(::dup(STDIN_FILENO)), m_screen(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_TRUE(::grantpt(m_screen) == 0 && ::unlockpt(m_screen) == 0);
        const int keyboard = ::open(::ptsname(m_screen), O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_GE(::dup2(keyboard, STDIN_FILENO), 0);
        ::close(keyboard);
        EXPECT_EQ(::write(m_screen, typed.constData(), size_t(typed.size())), typed.size());
    }
    ScopedTerminal(const ScopedTerminal &) = delete;
    ScopedTerminal &operator=(const ScopedTerminal &) = delete;
    ~ScopedTerminal()
    {
        ::dup2(m_before, STDIN_FILENO);
        ::close(m_before);
        ::close(m_screen);
    }

private:
    int m_before;
    int m_screen;
};

/// `ostrel forget` in this process, with an observer by script.
class ForgetCommand : public ArchiveCommandFixture
{
protected:
    CommandResult forgets(const QStringList &words, const QByteArray &input = {})
    {
        return run(QStringList(QStringLiteral("forget")) + words, input);
    }
    CommandResult forgetsLast(const char *minutes)
    {
        return forgets({QStringLiteral("--minutes"), QString::fromLatin1(minutes), QStringLiteral("--yes")});
    }
    CommandResult forgetsBetween(const char *from, const char *to)
    {
        return forgets({QStringLiteral("--from"), QString::fromUtf8(from), QStringLiteral("--to"),
                        QString::fromUtf8(to), QStringLiteral("--yes")});
    }
    void answer(const ForgetReport &report) { script(forget, report.toJson()); }
    qint64 sent(const char *key) const
    {
        return QJsonDocument::fromJson(bodyOf(forget))[QLatin1String(key)].toInteger();
    }
    static qint64 ms(const char *time)
    {
        return QDateTime::fromString(QString::fromLatin1(time), QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"))
            .toMSecsSinceEpoch();
    }
};

TEST_F(ForgetCommand, minutes_areTheLastOnesUpToNow)
{
    answer({.frames = 12,
            .rawInputs = 2,
            .journalLines = 3,
            .archiveClips = 4,
            .archiveFrames = 5,
            .notSearched = {},
            .archiveWaits = {}});
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    const auto outcome = forgetsLast("10");
    EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
    EXPECT_EQ(outcome.messages, QString());
    EXPECT_EQ(sent("toMs") - sent("fromMs"), 600'000);
    EXPECT_GE(sent("toMs"), before);
    for (const char *line : {"    12 waiting frames\n", "     2 kept model inputs\n", "     3 journal lines\n",
                             "     5 frames on their way into the archive\n", "     4 archive clips, whole ones"})
        EXPECT_THAT(outcome.output.toStdString(), HasSubstr(line));
}

TEST_F(ForgetCommand, localTimes_areThemselvesAndTheRestOfTheirLastMinute)
{
    answer({});
    EXPECT_EQ(forgetsBetween("2026-11-20 10:30", "2026-11-20T11:00").status, 0);
    EXPECT_EQ(sent("fromMs"), ms("2026-11-20 10:30:00.000"));
    EXPECT_EQ(sent("toMs"), ms("2026-11-20 11:00:59.999"));
}

TEST_F(ForgetCommand, secondsAndTimesOfToday_areUnderstood)
{
    answer({});
    EXPECT_EQ(forgetsBetween("00:00", "00:00:05").status, 0);
    const QDateTime today = QDate::currentDate().startOfDay();
    EXPECT_EQ(sent("fromMs"), today.toMSecsSinceEpoch());
    EXPECT_EQ(sent("toMs"), today.toMSecsSinceEpoch() + 5'999);
}

TEST_F(ForgetCommand, hourThatOccursTwice_isMeantFromItsFirstToItsLast)
{
    const ScopedVariable berlin("TZ", "Europe/Berlin");
    answer({});
    EXPECT_EQ(forgetsBetween("2026-10-25 02:30", "2026-10-25 02:45").status, 0);
    EXPECT_EQ(sent("fromMs"),
              QDateTime::fromString(QStringLiteral("2026-10-25T00:30:00Z"), Qt::ISODate).toMSecsSinceEpoch());
    EXPECT_EQ(sent("toMs"),
              QDateTime::fromString(QStringLiteral("2026-10-25T01:45:59.999Z"), Qt::ISODateWithMs).toMSecsSinceEpoch());
}

TEST_F(ForgetCommand, timesAroundTheHourThatOccursTwice_haveBothBetweenThem)
{
    const ScopedVariable berlin("TZ", "Europe/Berlin");
    answer({});
    EXPECT_EQ(forgetsBetween("2026-10-25 01:30", "2026-10-25 03:45").status, 0);
    EXPECT_EQ(sent("toMs") - sent("fromMs"), ((3 * 60 + 15) * 60 + 59) * 1000 + 999);
}

TEST_F(ForgetCommand, wordsThatMakeNoTime_areRefusedAndNothingIsAsked)
{
    const auto complaint = [this](const QStringList &words) {
        const auto outcome = forgets(words + QStringList(QStringLiteral("--yes")));
        EXPECT_EQ(outcome.status, 2);
        return outcome.messages.toStdString();
    };
    EXPECT_THAT(complaint({}), HasSubstr("Say what to forget"));
    for (const char *minutes : {"0", "-5", "ten", "99999999999"})
        EXPECT_THAT(complaint({QStringLiteral("--minutes=%1").arg(QLatin1String(minutes))}),
                    HasSubstr("--minutes takes a number of minutes"));
    EXPECT_THAT(complaint({QStringLiteral("--minutes=5"), QStringLiteral("--from=10:00")}), HasSubstr("not both"));
    EXPECT_THAT(complaint({QStringLiteral("--from=yesterday")}), HasSubstr("--from takes a local time"));
    EXPECT_THAT(complaint({QStringLiteral("--from=1960-01-01 10:00")}), HasSubstr("--from takes a local time"));
    EXPECT_THAT(complaint({QStringLiteral("--from=2026-11-20 10:00"), QStringLiteral("--to=25:00")}),
                HasSubstr("--to takes a local time"));
    EXPECT_THAT(complaint({QStringLiteral("--from=2026-11-20 10:00"), QStringLiteral("--to=2026-11-19 10:00")}),
                HasSubstr("ends before it begins"));
    EXPECT_EQ(asked(), QList<QByteArray>());
}

TEST_F(ForgetCommand, withoutATerminalToAsk_nothingIsRemovedUnlessToldYes)
{
    const auto outcome = forgets({QStringLiteral("--minutes"), QStringLiteral("5")}, "yes\n");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("say --yes"));
    EXPECT_EQ(asked(), QList<QByteArray>());
}

TEST_F(ForgetCommand, onATerminal_asksAndTakesNothingButYes)
{
    const auto answers = [this](const QByteArray &typed) {
        const ScopedTerminal terminal(typed);
        return run({QStringLiteral("forget"), QStringLiteral("--minutes"), QStringLiteral("5")});
    };
    for (const char *no : {"no\n", "\n", "y\n"}) {
        const auto outcome = answers(no);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.messages, QStringLiteral("ostrel: Nothing was removed.\n"));
    }
    EXPECT_EQ(asked(), QList<QByteArray>());
    answer({});
    EXPECT_EQ(answers("yes\n").status, 0);
    EXPECT_EQ(asked(), QList<QByteArray>{forget});
}

TEST_F(ForgetCommand, whatIsLeft_isSaidAndIsAFailure)
{
    answer({.frames = 1,
            .notSearched = {},
            .archiveWaits = QStringLiteral("Footage could not be removed from the archive yet.")});
    const auto waits = forgetsLast("5");
    EXPECT_EQ(waits.status, 1);
    EXPECT_THAT(waits.messages.toStdString(), HasSubstr("Footage could not be removed"));
    EXPECT_THAT(waits.output.toStdString(), HasSubstr("     1 waiting frames"))
        << "what was removed is told all the same";
    answer({.rawInputsUnknown = 2, .notSearched = {}, .archiveWaits = {}});
    const auto unknown = forgetsLast("5");
    EXPECT_EQ(unknown.status, 1);
    EXPECT_THAT(unknown.messages.toStdString(), HasSubstr("2 kept model inputs don't tell"));
    answer({.notSearched = QStringLiteral("This folder can't be found now: /mnt/journal."), .archiveWaits = {}});
    const auto unplugged = forgetsLast("5");
    EXPECT_EQ(unplugged.status, 1);
    EXPECT_THAT(unplugged.messages.toStdString(), HasSubstr("ostrel: This folder can't be found now: /mnt/journal.\n"));
}

TEST_F(ForgetCommand, json_hasEveryCountAndNullForWhatIsAbsent)
{
    answer({.journalLines = 3, .notSearched = {}, .archiveWaits = {}});
    const auto outcome = forgets({QStringLiteral("--from=2026-11-20 10:30"), QStringLiteral("--to=2026-11-20 10:31"),
                                  QStringLiteral("--yes"), QStringLiteral("--json")});
    const auto json = QJsonDocument::fromJson(outcome.output.toUtf8());
    EXPECT_EQ(json.object().keys().size(), 10);
    EXPECT_EQ(json[QStringLiteral("journalLines")], 3);
    EXPECT_TRUE(json[QStringLiteral("archiveWaits")].isNull());
    EXPECT_THAT(json[QStringLiteral("from")].toString().toStdString(), HasSubstr("2026-11-20T10:30:00"));
}

TEST_F(ForgetCommand, observerThatRefuses_isToldInItsWords)
{
    ObserverStatus status;
    status.lastError = QStringLiteral("What you have had forgotten could not all be removed yet: The disk is full.");
    script(forget, "{}", 507);
    when(forget, [this, status] { script(getStatus, status.toJson()); });
    const auto outcome = forgetsLast("5");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("The disk is full. Whether anything was removed"));
}

TEST_F(ForgetCommand, observerThatItStarts_isToldToAnalyseNothingAndOthersAreNot)
{
    const ScopedVariable root{"MORAVEL_REPO_ROOT", m_home.path(QStringLiteral("observer")).toLocal8Bit()};
    ASSERT_TRUE(writeFileAtomically(m_home.path(QStringLiteral("observer/dist/observer.mjs")), {}).has_value());
    writePort(freePort());
    m_launcher.expectFailure(faultError(Fault::NoSuchProgram, QStringLiteral("node")));
    EXPECT_EQ(forgetsLast("5").status, 1);
    ASSERT_EQ(m_launcher.descriptions().size(), 1);
    EXPECT_EQ(m_launcher.descriptions().first().environment.value(QStringLiteral("OSTREL_HOLD_ANALYSIS")),
              QStringLiteral("1"));
    EXPECT_FALSE(qEnvironmentVariableIsSet("OSTREL_HOLD_ANALYSIS"));
}

} // namespace
