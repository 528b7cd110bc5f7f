// A session without a window, and what the tests of the models ask of it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "browser_fixture.h"
#include "models/session.h"

/// The key of the first simulated server.
inline const QString StageKey = "127.0.0.2:4811";

class BrowserModels : public ::testing::Test
{
protected:
    using State = Browser::PictureStore::State;

    void SetUp() override
    {
        // No request is sent again because the machine is busy: some tests count them.
        session.requests().setTimeout(TestTimeout / 3);
        session.start();
    }
    void TearDown() override { forgetServers(); }

    /// Chooses @p key and waits until it is up.
    void openServer(const QString& key = StageKey)
    {
        session.chooseServer(key);
        ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    }
    /// Chooses a library and waits for its elements.
    void openLibrary(const QString& id, quint8 type = 1)
    {
        session.chooseLibrary(type, id);
        ASSERT_TRUE(waitFor([this] { return session.elements().state() == Browser::ElementModel::State::Loaded; }))
            << session.elements().problem().toStdString();
    }
    /// The same, and calls @p action when the elements are there, before any of their pictures can be, however busy the
    /// machine is.
    void openLibrary(const QString& id, const std::function<void()>& action)
    {
        const auto connection =
            QObject::connect(&session.elements(), &Browser::ElementModel::stateChanged, &session, [&] {
                if (session.elements().state() == Browser::ElementModel::State::Loaded)
                    action();
            });
        openLibrary(id);
        QObject::disconnect(connection);
    }
    /// Fetches what is below the library and waits for it.
    void expand(quint8 type, const QString& id)
    {
        Browser::LibraryModel& libraries = session.libraries();
        const QModelIndex index = libraries.find(type, id);
        ASSERT_TRUE(index.isValid());
        ASSERT_TRUE(libraries.canFetchMore(index));
        libraries.fetchMore(index);
        ASSERT_TRUE(waitFor([&] { return libraries.rowCount(libraries.find(type, id)) > 0; }));
    }
    State stateOf(int row) { return session.pictures().state(session.elements().pictureId(row)); }
    /// How many rows have a picture in this state.
    int countRows(State state)
    {
        int count = 0;
        for (int row = 0; row < session.elements().rowCount(); ++row)
            count += stateOf(row) == state ? 1 : 0;
        return count;
    }
    bool areAllReady()
    {
        const int rows = session.elements().rowCount();
        return rows > 0 && countRows(State::Ready) == rows;
    }
    bool isNew(int row) { return session.elements().index(row).data(Browser::ElementModel::IsNewRole).toBool(); }
    /// As if the chosen server had answered with @p count elements, whose names have @p nameLength characters.
    void answerElements(const QString& library, int count, int nameLength = 8)
    {
        Q_EMIT session.transport().mediaInfo(session.chosenServer(), mediaList(library, count, nameLength));
    }

    Browser::Session session;
};
