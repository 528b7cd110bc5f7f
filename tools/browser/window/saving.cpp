// The dialogue, and the message if the file could not be written.
// SPDX-License-Identifier: Apache-2.0
#include "saving.h"

#include <QFileDialog>
#include <QFileInfo>

namespace Browser {
void showMessage(QWidget* parent, QMessageBox::Icon icon, const QString& title, const QString& text)
{
    auto* const box = new QMessageBox(icon, title, text, QMessageBox::Ok, parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextFormat(Qt::PlainText);
    box->open();
}

void saveAs(QWidget* parent, const QString& title, const QString& name, const QString& filter,
            const std::function<QString(const QString&)>& write)
{
    auto* const dialog = new QFileDialog(parent, title, {}, filter);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    // The point in the name of a folder begins no suffix.
    if (!filter.isEmpty())
        dialog->setDefaultSuffix(QFileInfo(name).suffix());
    dialog->selectFile(name);
    QObject::connect(dialog, &QFileDialog::fileSelected, parent, [parent, title, write](const QString& path) {
        const QString problem = write(path);
        if (!problem.isEmpty())
            showMessage(parent, QMessageBox::Warning, title, problem);
    });
    dialog->open();
}
} // namespace Browser
