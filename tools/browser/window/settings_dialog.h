// SettingsDialog: the preferences, each with an explanation.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QSpinBox>

#include "models/preferences.h"

namespace Browser {
class SettingsDialog : public QDialog
{
    Q_OBJECT

public:
    explicit SettingsDialog(const Preferences& preferences, QWidget* parent);

    /// As they are set in the dialogue.
    Preferences preferences() const;

private:
    void add(QFormLayout* form, const QString& name, const QString& label, QWidget* control,
             const QString& explanation);

    QDoubleSpinBox* m_timeout;
    QSpinBox* m_requests;
    QSpinBox* m_kilobytes;
    QCheckBox* m_quiet;
    QComboBox* m_groups;
};
} // namespace Browser
