// corebench-fleet check as a program on a real folder tree: it acts only on what no one but root
// and the writer could write, and otherwise cannot decide (status 2, nothing to change), naming
// the path and who else could write it.

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include "fleet_test_support.h"

namespace {

struct Route {
    const char* change;  // a shell command; %1 is the tree, %2 the record's name in n1/
    const char* path;    // what check names (empty: it decides), and who it says could write it
    const char* who;
    const char* writer = nullptr;  // --writer, when not the user running the test
};

class FleetCheckTrust : public ::testing::Test {
  protected:
    void SetUp() override {
        // The tree: <dir>/r/n1/<month>/<record> and <dir>/r/corebench-summary.json, as run and
        // compare make them.
        tree = QFileInfo(dir.path()).canonicalFilePath();
        const FleetResult imported = runFleet({"import", "--host", "n1", "--out", tree + "/r",
                                               FLEET_TEST_DATA "/singlespeed-plain.log"});
        ASSERT_EQ(imported.status, 0) << imported.err.toStdString();
        month = QDir(tree + "/r/n1").entryList(QDir::Dirs | QDir::NoDotAndDotDot).value(0);
        record = month + "/" + QDir(tree + "/r/n1/" + month).entryList({"*.json"}).value(0);
        const FleetResult compared =
            runFleet({"compare", "--summary", tree + "/r/corebench-summary.json", tree + "/r"});
        ASSERT_EQ(compared.status, 0) << compared.err.toStdString();
    }

    // The route's change made, check's answer, and the tree as it was.
    void expectRoutes(const std::vector<Route>& routes) {
        const passwd* me = getpwuid(geteuid());
        ASSERT_NE(me, nullptr);
        for (const Route& route : routes) {
            SCOPED_TRACE(route.change);
            shell(filled(route.change));
            const FleetResult result =
                runFleet({"check", "--summary", tree + "/r/corebench-summary.json", "--host", "n1",
                          "--test", "SingleSpeed", "--writer",
                          route.writer != nullptr ? route.writer : me->pw_name, tree + "/r"});
            const QString out = QString::fromUtf8(result.out);
            if (QByteArray(route.path).isEmpty()) {
                EXPECT_EQ(result.status, 0) << out.toStdString() << result.err.toStdString();
            } else {
                EXPECT_EQ(result.status, 8);
                EXPECT_TRUE(out.startsWith("cannot decide: ")) << out.toStdString();
                EXPECT_TRUE(out.contains(filled(route.path) + ": could be written by "))
                    << out.toStdString() << result.err.toStdString();
                EXPECT_TRUE(out.contains(QLatin1String(route.who))) << out.toStdString();
            }
            shell(QStringLiteral("chown -R %1 %2 && chmod -R go-w,-t %2 && setfacl -R -b %2")
                      .arg(geteuid())
                      .arg(tree));
        }
    }

    QString filled(const char* text) const {
        return QString::fromUtf8(text)
            .replace("%1", tree)
            .replace("%2", record)
            .replace("%3", month);
    }

    static void shell(const QString& command) {
        const FleetResult result = runFleet({"-c", command}, "sh");
        ASSERT_EQ(result.status, 0) << command.toStdString() << ": " << result.err.toStdString()
                                    << "(setfacl: scripts/setup installs the acl package)";
    }

    QTemporaryDir dir;
    QString tree;
    QString month;   // its folder in n1's
    QString record;  // below n1's folder
};

// Each seen letting an unprivileged user resume a drained node, and their kin.
TEST_F(FleetCheckTrust, CannotDecideOnWhatOthersCouldWrite) {
    expectRoutes({
        {"true", "", ""},
        // An ACL entry on the host's folder, its mode bits clean (the mask holds it back).
        {"setfacl -m u:daemon:rwx %1/r/n1 && chmod 755 %1/r/n1", "%1/r/n1", "user daemon (ACL)"},
        {"setfacl -m g:nogroup:w %1/r/n1/%2", "%1/r/n1/%2", "group nogroup (ACL)"},
        // The month's folder: anyone could take the newest record away.
        {"chmod 1777 %1/r/n1/%3", "%1/r/n1/%3", "everyone (mode 1777)"},
        // A folder above the records that everyone may write, without the sticky bit: the
        // records folder could be swapped for another.
        {"chmod 777 %1", "%1", "everyone (mode 777)"},
        {"chmod 666 %1/r/n1/%2", "%1/r/n1/%2", "everyone (mode 666)"},
        {"chmod g+w %1/r/corebench-summary.json", "%1/r/corebench-summary.json", "(mode 664)"},
        {"chmod 1777 %1/r", "%1/r", "everyone (mode 1777)"},
    });
    const FleetResult unknown = runFleet({"check", "--summary", "s", "--host", "n1", "--test",
                                          "All", "--writer", "no-such-user", "r"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_TRUE(unknown.err.contains("--writer: no user \"no-such-user\""));
}

TEST_F(FleetCheckTrust, TrustsRootAndTheWriterAlone) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "giving files to other users needs root";
    }
    expectRoutes({
        {"chown nobody %1/r/n1/%2", "%1/r/n1/%2", "its owner, user nobody"},
        {"chown 4242 %1/r", "%1/r", "its owner, uid 4242"},
        {"chown -R nobody %1/r", "", "", "nobody"},
        {"chown nobody %1/r/corebench-summary.json", "", "", "nobody"},
        // Root's sticky folder, as /tmp: no one else can rename what is in it.
        {"chmod 1777 %1", "", ""},
        {"chown nobody %1 && chmod 1777 %1", "%1", "its owner, user nobody"},
    });
}

}  // namespace
