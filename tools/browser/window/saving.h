// Saving to a file that the user names.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMessageBox>
#include <QString>
#include <QWidget>

#include <functional>

namespace Browser {
/// Shows @p text, and returns at once.
void showMessage(QWidget* parent, QMessageBox::Icon icon, const QString& title, const QString& text);
/// Asks for a file and calls @p write with its path. Returns at once.
/// @param name suggested for the file, with a suffix unless that is a folder
/// @param filter of the names, as QFileDialog takes it; empty for a folder
/// @param write returns what is wrong, for the user; empty if nothing is. Not called once @p parent is deleted
void saveAs(QWidget* parent, const QString& title, const QString& name, const QString& filter,
            const std::function<QString(const QString&)>& write);
} // namespace Browser
