// The dialogue, and the message if the file could not be written.
// SPDX-License-Identifier: Apache-2.0
#include "saving.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>

namespace Browser {
void saveAs(QWidget* parent, const QString& title, const QString& name, const QString& filter,
            const std::function<QString(const QString&)>& write)
{
    auto* const dialog = new QFileDialog(parent, title, {}, filter);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setDefaultSuffix(QFileInfo(name).suffix());
    dialog->selectFile(name);
    QObject::connect(dialog, &QFileDialog::fileSelected, parent, [parent, title, write](const QString& path) {
        const QString problem = write(path);
        if (problem.isEmpty())
            return;
        auto* const box = new QMessageBox(QMessageBox::Warning, title, problem, QMessageBox::Ok, parent);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->setTextFormat(Qt::PlainText);
        box->open();
    });
    dialog->open();
}
} // namespace Browser
