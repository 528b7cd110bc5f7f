// HelpWindow: shows the installed guide.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QTextBrowser>

namespace Browser {
/// Where the guide is installed, beside the program in @p programFolder.
QString guideFolder(const QString& programFolder);

class HelpWindow : public QTextBrowser
{
    Q_OBJECT

public:
    /// Shows the guide's page about the browser, or where it was looked for.
    /// @param folder of the guide
    HelpWindow(const QString& folder, QWidget* parent);

private:
    void open(const QUrl& link);
};
} // namespace Browser
