// What the tests of the browser share: simulated servers as child processes, a folder of pictures, and waiting.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_elements.h>

#include <gtest/gtest.h>

#include <QPalette>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

#include "child.h"

/// Waits until the stack, of which a process has one, has lost the servers of a test: the next one begins without.
void forgetServers();

/// A dark desktop's colours.
QPalette darkPalette();

/// A list of @p count media, whose names have @p nameLength characters.
CITP::Msg_MSEX_MEIN mediaList(const QString& library, int count, int nameLength = 8);

/// citp-mediaserver on the loopback, with @p arguments besides; it listens once this is constructed.
class MediaServer
{
public:
    explicit MediaServer(const QStringList& arguments = {});

    /// Ends it at once, as a power failure does.
    void kill();
    /// Stops it as a hung program, until resume().
    void stop();
    void resume();
    /// Starts it anew after kill().
    void restart();
    /// How many times it has written @p part; waits until that are @p expected or it takes too long.
    int count(const QString& part, int expected = 0);

private:
    QStringList m_arguments;
    std::unique_ptr<Child> m_child;
};

/// A folder of pictures for a server, with two libraries and one below the second.
class PictureFolder
{
public:
    PictureFolder();

    QString path() const { return m_folder.path(); }
    /// Writes the picture @p file (with the folder before it), drawn after @p seed. A server that reads the folder
    /// finds the picture as it was before or the whole new one.
    void write(const QString& file, int seed) const;
    void remove(const QString& file) const;

private:
    QTemporaryDir m_folder;
    QTemporaryDir m_scratch;
};
