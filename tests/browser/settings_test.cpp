// The browser's settings, what it remembers, and its help.
// SPDX-License-Identifier: Apache-2.0
#include <QAction>
#include <QElapsedTimer>
#include <QLabel>
#include <QMessageBox>
#include <QRegularExpression>

#include "window/help_window.h"
#include "window/settings_dialog.h"
#include "window_fixture.h"

using Browser::LibraryModel;
using Browser::Preferences;
using Browser::ServerModel;

TEST_F(BrowserWindow, EverySettingIsExplainedAppliedAndRemembered)
{
    Preferences former = session.preferences();
    former.groups = CITP::citp_options::OldGroup;
    session.setPreferences(former);
    const MediaServer old({"--address", "127.0.0.3", "--port", "4812"});
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 1; }));
    // The stack has taken the groups over by the time it has started anew.
    bool wasLost = false;
    const QObject scope;
    QObject::connect(&session.servers(), &QAbstractItemModel::dataChanged, &scope,
                     [&] { wasLost = wasLost || session.servers().countUp() == 0; });
    session.chooseAdapter({});
    ASSERT_TRUE(waitFor([&] { return wasLost; }));
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 1; }));
    const MediaServer young({"--group", "new"});
    EXPECT_FALSE(waitFor([this] { return session.servers().rowCount() > 1; }, 1500));
    activate();
    key(Qt::Key_Comma, Qt::ControlModifier);
    auto* const dialog = find<Browser::SettingsDialog>("settings");
    ASSERT_TRUE(dialog);
    EXPECT_TRUE(dialog->isVisible());
    for (const char* const name : {"timeout", "requests", "kilobytes", "quiet", "groups"}) {
        EXPECT_TRUE(find<QWidget>(name)->isVisibleTo(dialog)) << name;
        const auto* const text = find<QLabel>((QByteArray(name) + "Explanation").constData());
        EXPECT_GT(text->text().size(), 60) << name;
        EXPECT_EQ(find<QWidget>(name)->accessibleDescription().toStdString(), text->text().toStdString());
    }
    find<QDoubleSpinBox>("timeout")->setValue(7.5);
    find<QSpinBox>("requests")->setValue(20);
    find<QSpinBox>("kilobytes")->setValue(300);
    find<QCheckBox>("quiet")->setChecked(true);
    auto* const groups = find<QComboBox>("groups");
    EXPECT_EQ(groups->currentText().toStdString(), "224.0.0.180");
    EXPECT_EQ(groups->itemText(0).toStdString(), "224.0.0.180 and 239.224.0.180");
    groups->setCurrentIndex(groups->findText("239.224.0.180"));
    EXPECT_EQ(session.requests().timeout(), 5000);
    dialog->accept();
    EXPECT_EQ(session.requests().timeout(), 7500);
    EXPECT_TRUE(session.requests().isQuiet());
    EXPECT_TRUE(waitFor([this] { return session.servers().stateOf(Key) == ServerModel::State::Up; }));
    const Preferences saved = Preferences::load();
    EXPECT_EQ(saved.timeout, 7500);
    EXPECT_EQ(saved.requestsPerSecond, 20);
    EXPECT_EQ(saved.kilobytesPerSecond, 300);
    EXPECT_TRUE(saved.isQuiet);
    EXPECT_EQ(saved.groups, CITP::citp_options::NewGroup);
}

TEST_F(BrowserWindow, ADialogueThatIsCancelledChangesNothing)
{
    activate();
    key(Qt::Key_Comma, Qt::ControlModifier);
    find<QDoubleSpinBox>("timeout")->setValue(7.5);
    find<Browser::SettingsDialog>("settings")->reject();
    EXPECT_EQ(session.requests().timeout(), 5000);
    EXPECT_EQ(Preferences::load().timeout, 5000);
}

TEST_F(BrowserWindow, ALimitHoldsRequestsBack)
{
    Preferences limited = session.preferences();
    limited.requestsPerSecond = 1;
    const MediaServer server({"--layers", "0"});
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    session.chooseLibrary(1, "1,3,0,0");
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    session.setPreferences(limited);
    // Without the limit, four requests of a kind are under way before the first is answered.
    const auto sent = [this] { return session.requests().statistics().requests; };
    qint64 atFirstAnswer = 0;
    qint64 allowed = 0;
    const qint64 before = sent();
    QElapsedTimer time;
    time.start();
    const QObject scope;
    QObject::connect(&session.pictures(), &Browser::PictureStore::changed, &scope, [&] {
        if (atFirstAnswer == 0 && rowsReady() > 0) {
            atFirstAnswer = sent() - before;
            allowed = 2 + time.elapsed() / 1000;
        }
    });
    session.chooseLibrary(1, "1,2,0,0");
    ASSERT_TRUE(waitFor([&] { return atFirstAnswer > 0; }));
    EXPECT_LE(atFirstAnswer, allowed);
}

TEST_F(BrowserWindow, QuietModeIsAKeyAwayAndShownWhileItIsOn)
{
    activate();
    auto* const note = find<QPushButton>("quietNote");
    EXPECT_FALSE(note->isVisible());
    key(Qt::Key_M, Qt::ControlModifier);
    EXPECT_TRUE(session.requests().isQuiet());
    EXPECT_TRUE(note->isVisible());
    EXPECT_EQ(note->text().toStdString(), "Quiet mode");
    EXPECT_TRUE(find<QAction>("quietMode")->isChecked());
    // The next run begins so.
    session.setPreferences(Preferences::load());
    window = std::make_unique<Browser::MainWindow>(session);
    window->show();
    EXPECT_TRUE(find<QPushButton>("quietNote")->isVisible());
    find<QPushButton>("quietNote")->click();
    EXPECT_FALSE(session.requests().isQuiet());
    EXPECT_FALSE(find<QPushButton>("quietNote")->isVisible());
    EXPECT_FALSE(Preferences::load().isQuiet);
}

TEST_F(BrowserWindow, WhatIsOpenedIsLoadedInQuietModeToo)
{
    Preferences quiet = session.preferences();
    quiet.isQuiet = true;
    session.setPreferences(quiet);
    const MediaServer server({"--layers", "0"});
    ASSERT_TRUE(waitFor([this] { return session.libraries().find(1, "1,3,0,0").isValid(); }));
    session.chooseLibrary(1, "1,3,0,0");
    EXPECT_TRUE(waitFor([this] { return rowsReady() > 0; }));
}

TEST_F(BrowserWindow, RemembersTheLibraryAndTheFilter)
{
    const MediaServer server;
    ASSERT_TRUE(waitFor([this] { return session.libraries().find(1, "1,3,0,0").isValid(); }));
    session.libraries().fetchMore(session.libraries().find(1, "1,3,0,0"));
    ASSERT_TRUE(waitFor([this] { return session.libraries().find(1, "2,3,1,0").isValid(); }));
    session.chooseLibrary(1, "2,3,1,0");
    find<QLineEdit>("search")->setText("a");
    window->close();
    session.chooseServer({});
    window = std::make_unique<Browser::MainWindow>(session);
    window->show();
    EXPECT_EQ(find<QLineEdit>("search")->text().toStdString(), "a");
    find<QLineEdit>("search")->clear();
    // What is above it is opened.
    ASSERT_TRUE(waitFor([this] { return chosenLibrary() == "2,3,1,0"; }));
    EXPECT_EQ(find<QTreeView>("libraries")->currentIndex().data(LibraryModel::IdRole).toString().toStdString(),
              "2,3,1,0");
}

TEST_F(BrowserWindow, TheHelpIsTheInstalledGuide)
{
    EXPECT_EQ(Browser::guideFolder("/usr/bin").toStdString(), "/usr/share/citp/guide");
    activate();
    key(Qt::Key_F1);
    const auto* const missing = find<QTextBrowser>("help");
    ASSERT_TRUE(missing);
    EXPECT_TRUE(missing->isVisible());
    EXPECT_TRUE(missing->toPlainText().startsWith("The guide is not installed"))
        << missing->toPlainText().toStdString();

    Browser::HelpWindow help(QStringLiteral(CITP_SOURCES "docs"), window.get());
    help.setAttribute(Qt::WA_DeleteOnClose, false);
    EXPECT_TRUE(help.toPlainText().startsWith("The browser\n")) << help.toPlainText().left(40).toStdString();
    Q_EMIT help.anchorClicked(QUrl("guards.md"));
    EXPECT_TRUE(help.toPlainText().startsWith("Guards\n")) << help.toPlainText().left(40).toStdString();
    // A link that leads nowhere leaves the page.
    Q_EMIT help.anchorClicked(QUrl("no-such-page.md"));
    EXPECT_TRUE(help.toPlainText().startsWith("Guards\n"));
    QTest::keyClick(&help, Qt::Key_Left, Qt::AltModifier);
    EXPECT_TRUE(help.toPlainText().startsWith("The browser\n"));
}

TEST_F(BrowserWindow, AboutNamesTheVersions)
{
    QCoreApplication::setApplicationVersion("7.8.9");
    find<QAction>("aboutBrowser")->trigger();
    auto* const box = find<QMessageBox>("about");
    ASSERT_TRUE(box);
    EXPECT_EQ(box->text().toStdString(), "CITP Browser 7.8.9");
    EXPECT_TRUE(box->informativeText().contains(QRegularExpression("/libcitp[^/]*\\.so\\.[0-9]+\\.[0-9]+\\.[0-9]+\n")))
        << box->informativeText().toStdString();
    EXPECT_TRUE(box->informativeText().contains(QString("Qt: %1").arg(qVersion())));
    box->reject();
}
