// A session with its window, and what the tests of the window do with it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QSettings>
#include <QTest>

#include <memory>

#include "browser_fixture.h"
#include "models/session.h"
#include "window/main_window.h"

/// The key of the first simulated server.
inline const QString Key = "127.0.0.2:4811";

class BrowserWindow : public ::testing::Test
{
protected:
    BrowserWindow()
    {
        QSettings().clear();
        window = std::make_unique<Browser::MainWindow>(session);
        window->resize(1280, 720);
        window->show();
        session.start();
    }

    void TearDown() override { forgetServers(); }

    template <typename Widget>
    Widget* find(const char* name)
    {
        auto* const widget = window->findChild<Widget*>(QLatin1String(name));
        EXPECT_NE(widget, nullptr) << name;
        return widget;
    }
    /// Only the widgets of the active window have the focus.
    void activate()
    {
        window->activateWindow();
        EXPECT_TRUE(waitFor([this] { return window->isActiveWindow(); }));
    }
    void key(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QWidget* const focus = QApplication::focusWidget();
        QTest::keyClick(focus ? focus : window.get(), static_cast<Qt::Key>(key), modifiers);
    }
    bool areAllReady()
    {
        return session.elements().rowCount() > 0 && session.pictures().total() > 0 &&
               session.pictures().done() == session.pictures().total();
    }
    int rowsReady()
    {
        int ready = 0;
        for (int row = 0; row < session.elements().rowCount(); ++row)
            ready += session.pictures().state(session.elements().pictureId(row)) == Browser::PictureStore::State::Ready
                         ? 1
                         : 0;
        return ready;
    }
    QString chosenLibrary() { return session.elements().library(); }

    Browser::Session session;
    std::unique_ptr<Browser::MainWindow> window;
};
