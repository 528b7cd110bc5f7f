// LogPane: the library's log with filters by context and level, and traffic on demand.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QCheckBox>
#include <QComboBox>
#include <QTableView>
#include <QWidget>

#include "models/log_model.h"

namespace Browser {
class LogPane : public QWidget
{
    Q_OBJECT

public:
    /// @param log must outlive this object
    explicit LogPane(LogModel& log, QWidget* parent = nullptr);

private:
    void applyLevels();
    void followEnd();
    void save();

    LogModel& m_log;
    LogFilter m_filter;
    QComboBox* m_context;
    QComboBox* m_level;
    QCheckBox* m_traffic;
    QTableView* m_view;
    bool m_isAtEnd = true; ///< whether the view was scrolled to its end before lines were inserted
};
} // namespace Browser
