// Saving to a file that the user names.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QWidget>

#include <functional>

namespace Browser {
/// Asks for a file and calls @p write with its path. Returns at once.
/// @param name suggested for the file, with a suffix
/// @param filter of the names, as QFileDialog takes it
/// @param write returns what is wrong, for the user; empty if nothing is. Not called once @p parent is deleted
void saveAs(QWidget* parent, const QString& title, const QString& name, const QString& filter,
            const std::function<QString(const QString&)>& write);
} // namespace Browser
