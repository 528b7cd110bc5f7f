// Whether the browser's window can be read and used: contrast, large fonts, long names, adapters, and accessibility.
// SPDX-License-Identifier: Apache-2.0
#include <QAbstractButton>
#include <QAccessible>
#include <QAction>
#include <QCheckBox>
#include <QHeaderView>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <QProcess>
#include <QScrollBar>
#include <QSet>
#include <QStyle>
#include <QTabBar>
#include <QTranslator>

#include <algorithm>

#include "models/language.h"
#include "models/layer_model.h"
#include "window/elided_label.h"
#include "window/painting.h"
#include "window/settings_dialog.h"
#include "window_fixture.h"

namespace {
using Browser::ElementGrid;
using Browser::ElementModel;

/// The highest contrast of a pixel to the one in the corner.
double contrastIn(const QImage& image)
{
    double most = 1;
    const QColor background = image.pixelColor(0, 0);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            most = qMax(most, Browser::contrast(image.pixelColor(x, y), background));
    }
    return most;
}

/// Every control below @p widget that has no name or role, as a text. Names are also asked of what has the keyboard's
/// focus only.
QStringList namelessBelow(QAccessibleInterface* it, int* count)
{
    QStringList found;
    if (!it || it->state().invisible)
        return found;
    if (it->state().focusable && it->object() && it->object()->isWidgetType()) {
        ++*count;
        const bool hasRole = it->role() != QAccessible::NoRole && it->role() != QAccessible::Client;
        if (it->text(QAccessible::Name).trimmed().isEmpty() || !hasRole)
            found << QString("%1 '%2' role %3")
                         .arg(it->object()->metaObject()->className(), it->object()->objectName())
                         .arg(it->role());
    }
    // Of a list, its rows are not controls.
    if (qobject_cast<QAbstractItemView*>(it->object()))
        return found;
    for (int i = 0; i < it->childCount(); ++i)
        found << namelessBelow(it->child(i), count);
    return found;
}

/// Every text of @p root and what is below that has not been translated, if translated ones begin with @p mark.
QStringList untranslatedBelow(const QObject& root, const QString& mark)
{
    QStringList found;
    const auto check = [&](const QObject& it, const char* what, const QString& text) {
        const bool isText = std::any_of(text.begin(), text.end(), [](const QChar c) { return c.isLetter(); });
        if (isText && !text.contains(mark))
            found << QString("%1 %2, %3: %4").arg(it.metaObject()->className(), it.objectName(), what, text);
    };
    QList<const QObject*> all{&root};
    for (const QObject* const child : root.findChildren<QObject*>())
        all << child;
    for (const QObject* const it : all) {
        for (const char* const name : {"text", "toolTip", "title", "windowTitle", "placeholderText", "accessibleName",
                                       "prefix", "suffix", "specialValueText", "format"})
            check(*it, name, it->property(name).toString());
        if (const auto* const view = qobject_cast<const QAbstractItemView*>(it)) {
            for (int column = 0; view->model() && column < view->model()->columnCount(); ++column)
                check(*it, "heading", view->model()->headerData(column, Qt::Horizontal).toString());
        }
    }
    return found;
}

/// Marks every text that is translated.
class Marker : public QTranslator
{
public:
    inline static const QString Mark = QString(QChar(0xa4));

    QString translate(const char* /*context*/, const char* text, const char* /*comment*/, int /*n*/) const override
    {
        return Mark + QString::fromUtf8(text);
    }
    bool isEmpty() const override { return false; }
};

void ip(const QString& arguments)
{
    EXPECT_EQ(QProcess::execute("ip", arguments.split(' ')), 0) << arguments.toStdString();
}
} // namespace

TEST_F(BrowserWindow, HintsHaveEnoughContrastInLightAndInDarkColours)
{
    session.chooseServer("127.0.0.9:4811");
    for (const QPalette& palette : {QApplication::style()->standardPalette(), darkPalette()}) {
        QApplication::setPalette(palette);
        QTest::qWait(20);
        for (const double share : {0.35, 0.5}) {
            const QColor hint = Browser::dimmed(palette, share);
            for (const QColor& background : {palette.color(QPalette::Base), palette.color(QPalette::AlternateBase),
                                             Browser::pictureBackground(palette)})
                EXPECT_GE(Browser::contrast(hint, background), 4.5) << hint.name().toStdString();
            EXPECT_NE(hint, palette.color(QPalette::Text));
        }
        for (const char* const name : {"search", "searchText"}) {
            const QPalette colours = find<QLineEdit>(name)->palette();
            EXPECT_GE(Browser::contrast(colours.color(QPalette::PlaceholderText), palette.color(QPalette::Base)), 4.5)
                << name;
        }
        // As painted: the text in place of the elements.
        EXPECT_GE(contrastIn(find<ElementGrid>("elements")->viewport()->grab().toImage()), 4.5);
    }
    QApplication::setPalette(QApplication::style()->standardPalette());
}

TEST_F(BrowserWindow, NoCountIsCutInALargeFont)
{
    const MediaServer server({"--layer-rate", "20"});
    ASSERT_TRUE(waitFor([this] { return session.libraries().find(1, "1,3,0,0").isValid(); }));
    ASSERT_TRUE(waitFor([this] { return session.layers().rowCount() == 2; }));
    const QFont normal = QApplication::font();
    QFont large = normal;
    large.setPointSize(24);
    QApplication::setFont(large);
    const QFontMetrics metrics(large);
    const auto* const tree = find<QTreeView>("libraries");
    EXPECT_TRUE(waitFor([&] {
        return tree->columnWidth(1) >= metrics.horizontalAdvance("Elements") &&
               tree->columnWidth(1) <= tree->viewport()->width();
    })) << tree->columnWidth(1)
        << " of " << tree->viewport()->width();
    const auto* const layers = find<QTableView>("layers");
    EXPECT_TRUE(waitFor([&] { return layers->rowHeight(0) >= metrics.height(); })) << layers->rowHeight(0);
    for (const int column : {Browser::LayerModel::Layer, Browser::LayerModel::FrameRate, Browser::LayerModel::Output,
                             Browser::LayerModel::Position}) {
        EXPECT_TRUE(waitFor([&] {
            return layers->columnWidth(column) >=
                   metrics.horizontalAdvance(session.layers().index(0, column).data().toString());
        })) << column;
    }
    const auto* const counts = find<QLabel>("counts");
    EXPECT_TRUE(waitFor([&] { return counts->width() >= metrics.horizontalAdvance(counts->text()); }));
    QApplication::setFont(normal);
}

TEST_F(BrowserWindow, LongNamesLoseTheirMiddleAndAreWholeInTheTooltip)
{
    const MediaServer server({"--fault", "silence"});
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    session.chooseLibrary(1, "1,9,0,0");
    auto* const grid = find<ElementGrid>("elements");
    const auto paintedWith = [&](const QString& end) {
        CITP::Msg_MSEX_MEIN list = mediaList("1,9,0,0", 1);
        list.Media[0].Name = QString(140, 'a') + end;
        session.elements().reload();
        Q_EMIT session.transport().mediaInfo(session.chosenServer(), list);
        const QModelIndex index = session.elements().index(0);
        EXPECT_TRUE(index.data(Qt::ToolTipRole).toString().contains(list.Media[0].Name));
        // Below the picture, on which the badge of a new element is.
        const QRect tile = grid->visualRect(index);
        return grid->viewport()->grab(tile.adjusted(0, tile.height() * 3 / 4, 0, 0)).toImage();
    };
    // Longer than what is painted.
    CITP::Msg_MSEX_MEIN list = mediaList("1,9,0,0", 1, 700);
    Q_EMIT session.transport().mediaInfo(session.chosenServer(), list);
    ASSERT_EQ(session.elements().rowCount(), 1);
    EXPECT_TRUE(session.elements().index(0).data(Qt::ToolTipRole).toString().contains(list.Media[0].Name));
    EXPECT_NE(paintedWith("IIIII"), paintedWith("WWWWW"));
    EXPECT_EQ(find<QTreeView>("libraries")->textElideMode(), Qt::ElideMiddle);
    Browser::ElidedLabel label(nullptr);
    label.resize(100, 30);
    label.setText(QString(100, 'a') + "IIIII");
    const QImage one = label.grab().toImage();
    label.setText(QString(100, 'a') + "WWWWW");
    EXPECT_NE(label.grab().toImage(), one);
}

TEST_F(BrowserWindow, AnAdapterThatIsMissingIsNamed)
{
    session.chooseAdapter("eth7");
    const auto* const button = find<QPushButton>("adapter");
    EXPECT_TRUE(waitFor([&] { return button->text() == QString::fromUtf8("Adapter: eth7 – missing"); }))
        << button->text().toStdString();
    EXPECT_FALSE(button->icon().isNull());
    session.chooseAdapter({});
    EXPECT_TRUE(waitFor([&] { return button->text() == "Adapter: lo, 127.0.0.1"; })) << button->text().toStdString();
    EXPECT_TRUE(button->icon().isNull());
}

TEST_F(BrowserWindow, ALinkThatIsDownIsSeenInTheStatusBar)
{
    if (qEnvironmentVariableIsEmpty("CITP_TEST_NAMESPACE"))
        GTEST_SKIP() << "needs a network namespace";
    ip("link add browser0 type veth peer name browser1");
    ip("addr add 10.9.8.7/24 dev browser0");
    ip("link set browser0 up");
    const auto* const button = find<QPushButton>("adapter");
    EXPECT_TRUE(waitFor([&] { return button->text() == QString::fromUtf8("Adapter: browser0, 10.9.8.7 – link down"); }))
        << button->text().toStdString();
    ip("link set browser1 up");
    EXPECT_TRUE(waitFor([&] { return button->text() == "Adapter: browser0, 10.9.8.7"; }))
        << button->text().toStdString();
    // Nothing else is usable but the loopback.
    ip("link set browser0 down");
    EXPECT_TRUE(waitFor([&] {
        return button->text() == QString::fromUtf8("Adapter: lo, 127.0.0.1 – browser0 is down");
    })) << button->text().toStdString();
    ip("link del browser0");
}

TEST_F(BrowserWindow, EveryControlHasANameAndARole)
{
    const MediaServer server({"--layer-rate", "20"});
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    session.setPreferences([this] {
        Browser::Preferences quiet = session.preferences();
        quiet.isQuiet = true;
        return quiet;
    }());
    int count = 0;
    QStringList nameless = namelessBelow(QAccessible::queryAccessibleInterface(window.get()), &count);
    for (const char* const pane : {"patchPane", "logPane", "searchPane"}) {
        window->findChild<QWidget*>(pane)->raise();
        QTest::qWait(20);
        nameless += namelessBelow(QAccessible::queryAccessibleInterface(window.get()), &count);
    }
    Browser::SettingsDialog dialog(session.preferences(), window.get());
    dialog.show();
    nameless += namelessBelow(QAccessible::queryAccessibleInterface(&dialog), &count);
    EXPECT_TRUE(nameless.isEmpty()) << nameless.join('\n').toStdString();
    EXPECT_GT(count, 20);
    auto* const grid = find<ElementGrid>("elements");
    session.chooseLibrary(1, "1,3,0,0");
    ASSERT_TRUE(waitFor([this] { return session.elements().rowCount() == 10; }));
    grid->setCurrentIndex(session.elements().index(3));
    EXPECT_TRUE(QAccessible::queryAccessibleInterface(grid)->text(QAccessible::Value).startsWith("3, Frame 03"));
    // The picture is no control, but has a name too.
    EXPECT_FALSE(window->findChild<Browser::PictureView*>()->accessibleName().isEmpty());
}

TEST_F(BrowserWindow, EveryTextIsTranslated)
{
    Marker marker;
    window.reset();
    QCoreApplication::installTranslator(&marker);
    window = std::make_unique<Browser::MainWindow>(session);
    window->show();
    new Browser::SettingsDialog(session.preferences(), window.get());
    window->findChild<QAction*>("aboutBrowser")->trigger();
    ASSERT_TRUE(waitFor([this] { return !session.adapter().address.isEmpty(); }));
    QTest::qWait(20);
    const QStringList found = untranslatedBelow(*window, Marker::Mark);
    EXPECT_TRUE(found.isEmpty()) << found.join('\n').toStdString();
    window.reset();
    QCoreApplication::removeTranslator(&marker);
}

TEST_F(BrowserWindow, TheWindowIsGermanWhereThatIsTheFirstOfItsLanguages)
{
    const auto title = [this] {
        window = std::make_unique<Browser::MainWindow>(session);
        return find<QCheckBox>("onlyProblems")->text().toStdString();
    };
    for (const QStringList& languages : {QStringList{"de-CH"}, QStringList{"fr-FR", "de-DE", "en"}}) {
        const auto german = Browser::translateTexts(languages);
        EXPECT_EQ(title(), "Nur mit &Problemen");
        // No wider than in English.
        window->show();
        for (const QSize& size : {QSize(1000, 600), QSize(800, 500), QSize(800, 500)}) {
            window->resize(size);
            QTest::qWait(50);
        }
        EXPECT_LE(window->width(), 800);
        EXPECT_LE(window->height(), 500);
        EXPECT_LE(window->minimumSizeHint().width(), 800);
        EXPECT_LE(window->minimumSizeHint().height(), 500);
    }
    EXPECT_EQ(title(), "Only with &problems");
    for (const QStringList& languages : {QStringList{"en-US", "de-DE"}, QStringList{"fr-FR"}, QStringList{"C"}}) {
        const auto none = Browser::translateTexts(languages);
        EXPECT_EQ(title(), "Only with &problems");
    }
}

TEST_F(BrowserWindow, NoKeyOfAMenuIsTakenTwice)
{
    for (const char* const language : {"en", "de"}) {
        const auto translation = Browser::translateTexts({language});
        window = std::make_unique<Browser::MainWindow>(session);
        QList<QWidget*> menus{window->menuBar()};
        for (QWidget* const widget : window->findChildren<QWidget*>()) {
            if (qobject_cast<QMenu*>(widget) || widget->contextMenuPolicy() == Qt::ActionsContextMenu)
                menus << widget;
        }
        EXPECT_GT(menus.size(), 5);
        for (const QWidget* const menu : menus) {
            QString keys;
            for (const QAction* const action : menu->actions()) {
                const auto place = action->text().indexOf('&');
                if (place < 0)
                    continue;
                const QChar key = action->text().at(place + 1).toLower();
                EXPECT_FALSE(keys.contains(key)) << action->text().toStdString();
                keys += key;
            }
        }
    }
}

TEST_F(BrowserWindow, TheListOfServersShowsTheFocus)
{
    activate();
    const MediaServer server({"--name", "Stage", "--layers", "0"});
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 1; }));
    session.chooseServer(Key);
    auto* const servers = find<QListView>("servers");
    const auto* const model = servers->model();
    ASSERT_TRUE(waitFor([&] { return servers->currentIndex().isValid(); }));
    const auto paint = [&](QStyle::State state) {
        QImage image(200, 80, QImage::Format_RGB32);
        image.fill(Qt::white);
        QPainter painter(&image);
        QStyleOptionViewItem option;
        option.initFrom(servers);
        option.rect = image.rect();
        option.state = state;
        servers->itemDelegate()->paint(&painter, option, model->index(0, 0));
        return image;
    };
    for (const QStyle::State state :
         {QStyle::State_Enabled | QStyle::State_Selected, QStyle::State(QStyle::State_Enabled)})
        EXPECT_NE(paint(state), paint(state | QStyle::State_HasFocus));
}

TEST_F(BrowserWindow, EveryControlIsReachedByTheKeyboard)
{
    const MediaServer server;
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    QApplication::setActiveWindow(window.get());
    for (const char* const pane : {"layersPane", "patchPane", "logPane", "searchPane"}) {
        window->findChild<QWidget*>(pane)->raise();
        QTest::qWait(20);
        find<QListView>("servers")->setFocus();
        QSet<QWidget*> reached;
        for (int i = 0; i < 60; ++i) {
            reached.insert(QApplication::focusWidget());
            key(Qt::Key_Tab);
        }
        for (QWidget* const widget : window->findChildren<QWidget*>()) {
            const bool isControl = qobject_cast<QAbstractButton*>(widget) || qobject_cast<QLineEdit*>(widget) ||
                                   qobject_cast<QComboBox*>(widget) || qobject_cast<QAbstractSlider*>(widget) ||
                                   qobject_cast<QAbstractItemView*>(widget);
            // Those that Qt puts into other controls have menu items or keys; hidden panes come in their turn.
            const bool isQtsOwn = widget->objectName().startsWith("qt_") || qobject_cast<QScrollBar*>(widget) ||
                                  qobject_cast<QHeaderView*>(widget) ||
                                  qobject_cast<QLineEdit*>(widget->parentWidget()) ||
                                  qobject_cast<QAbstractItemView*>(widget->parentWidget()) ||
                                  qobject_cast<QTabBar*>(widget->parentWidget());
            const bool isSeen = widget->isVisible() && !widget->visibleRegion().isEmpty();
            if (isControl && !isQtsOwn && isSeen && widget->isEnabled()) {
                EXPECT_TRUE(reached.contains(widget))
                    << pane << ": " << widget->metaObject()->className() << " " << widget->objectName().toStdString();
            }
        }
    }
    // What a click on a heading does.
    auto* const patch = find<QTableView>("patch");
    patch->setFocus();
    QAction* const action = [patch]() -> QAction* {
        for (QAction* const each : patch->actions()) {
            if (each->shortcut() == QKeySequence(int(Qt::CTRL) | Qt::Key_T))
                return each;
        }
        return nullptr;
    }();
    ASSERT_TRUE(action);
    ASSERT_EQ(patch->horizontalHeader()->sortIndicatorOrder(), Qt::AscendingOrder);
    action->trigger();
    EXPECT_EQ(patch->horizontalHeader()->sortIndicatorOrder(), Qt::DescendingOrder);
}
