// PreviewPane: the chosen element's large picture and all its fields.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QLabel>
#include <QTreeWidget>
#include <QWidget>

namespace Browser {
/// A picture scaled to the widget's size, or a text in its place.
class PictureView : public QWidget
{
    Q_OBJECT

public:
    explicit PictureView(QWidget* parent);

    void show(const QImage& image, const QString& text);
    using QWidget::show;
    const QImage& image() const { return m_image; }
    QSize sizeHint() const override { return {320, 240}; }
    QSize minimumSizeHint() const override { return {120, 90}; }
    int heightForWidth(int width) const override { return width * 3 / 4; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QImage m_image;
    QString m_text;
};

class PreviewPane : public QWidget
{
    Q_OBJECT

public:
    explicit PreviewPane(QWidget* parent = nullptr);

    /// @param text shown if @p image is null
    void setPicture(const QImage& image, const QString& text);
    void setFields(const std::vector<std::pair<QString, QString>>& fields);
    void clear();

protected:
    void changeEvent(QEvent* event) override;

private:
    void colour();

    PictureView* m_picture;
    QTreeWidget* m_fields;
    std::vector<std::pair<QString, QString>> m_shown; ///< in #m_fields
};
} // namespace Browser
