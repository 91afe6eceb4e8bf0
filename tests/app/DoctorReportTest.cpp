#include "FindingMatchers.h"
#include "HealthyFacts.h"

#include <QJsonObject>
#include <QSet>

using namespace ostrel;
using testing::HasSubstr;

namespace {

QJsonObject rowOf(const QJsonArray &rows, const char *check)
{
    for (const QJsonValue &row : rows) {
        if (row.toObject().value(QStringLiteral("check")) == QLatin1String(check))
            return row.toObject();
    }
    return {};
}

TEST(DoctorReport, healthyDesktop_canRecordAndMissesNothing)
{
    const DoctorReport report = examine(healthyFacts());
    EXPECT_TRUE(canRecord(report));
    EXPECT_THAT(reportText(report).toStdString(), HasSubstr("\n\nRecording is possible, and nothing is missing.\n"));
    EXPECT_THAT(reportText(report).toStdString(), testing::Not(HasSubstr("fix:")));
}

TEST(DoctorReport, onlyWhatBlocks_makesRecordingImpossible)
{
    DoctorFacts facts = healthyFacts();
    facts.bus->isAccessibilityGranted = false;
    facts.keyring = KeyringState::Locked;
    EXPECT_TRUE(canRecord(examine(facts)));
    EXPECT_THAT(reportText(examine(facts)).toStdString(), HasSubstr("possible; 2 things are missing.\n"));
    facts.node.path.clear();
    EXPECT_FALSE(canRecord(examine(facts)));
    EXPECT_THAT(reportText(examine(facts)).toStdString(), HasSubstr("Recording is impossible until"));
}

TEST(DoctorReport, everythingBroken_hidesNothing)
{
    DoctorFacts facts;
    facts.session = SessionKind::X11; // and no answer of anybody
    const DoctorReport report = examine(facts);
    EXPECT_EQ(report.size(), allChecks().size());
    EXPECT_FALSE(canRecord(report));
}

TEST(DoctorReport, text_alignsAndPutsTheFixBelowWhatItMends)
{
    DoctorFacts facts = healthyFacts();
    facts.bus->isAccessibilityGranted = false;
    const QStringList lines = reportText(examine(facts)).split(u'\n');
    EXPECT_EQ(lines[0], QStringLiteral("ok       session           X11, display :0"));
    const qsizetype missing =
        lines.indexOf(QStringLiteral("missing  window titles     not allowed: the journal names applications alone"));
    ASSERT_GE(missing, 0);
    EXPECT_EQ(lines[missing + 1],
              QStringLiteral("                           fix: ostrel permissions allow recordingContext"));
}

TEST(DoctorReport, json_isARowACheckWithNullWhereNothingIsToBeMended)
{
    DoctorFacts facts = healthyFacts();
    facts.keyring.reset();
    facts.bus->keyring = {};
    const QJsonArray rows = reportJson(examine(facts));
    ASSERT_EQ(rows.size(), allChecks().size());
    const QJsonObject session{{QStringLiteral("check"), QStringLiteral("session")},
                              {QStringLiteral("ok"), true},
                              {QStringLiteral("detail"), QStringLiteral("X11, display :0")},
                              {QStringLiteral("fix"), QJsonValue::Null}};
    EXPECT_EQ(rows.at(0).toObject(), session);
    const QJsonObject keyring = rowOf(rows, "keyring");
    EXPECT_EQ(keyring.value(QStringLiteral("ok")), false);
    EXPECT_EQ(keyring.value(QStringLiteral("fix")), QStringLiteral("sudo apt install gnome-keyring"));
}

TEST(DoctorReport, identifiersAndLabels_areUniqueAndFitTheirColumn)
{
    QSet<QByteArray> ids, labels;
    for (const Check &check : allChecks()) {
        ids.insert(check.id);
        labels.insert(check.label);
        EXPECT_LT(qstrlen(check.label), 18U) << check.label;
    }
    EXPECT_EQ(ids.size(), allChecks().size());
    EXPECT_EQ(labels.size(), allChecks().size());
}

} // namespace
