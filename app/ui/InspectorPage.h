#pragma once

#include "model/Project.h"

#include <QString>
#include <QWidget>

#include <functional>
#include <initializer_list>
#include <vector>

class QBoxLayout;
class QCheckBox;
class QComboBox;
class QGroupBox;
class QHBoxLayout;
class QLabel;
class QPushButton;
class QVBoxLayout;

namespace marlowick {

class EditorSession;
class InspectorSlider;

// What a tab of the inspector is built from: labelled sections stacked in a scroll area, and controls
// bound to one field of the open project each. A bound control asks the session for one named edit of its
// field (a slider's moves in one gesture are one step of the history); the session decides what to rebuild.
// It follows the document through `refresh`, which fills every control without any of them writing back.
//
// Thread: the main thread only. The session is not owned and outlives the page.
class InspectorPage : public QWidget {
    Q_OBJECT
public:
    explicit InspectorPage(EditorSession& session, QWidget* parent = nullptr);

    // The section with this title, or null.
    QGroupBox* section(const QString& title) const;

    // Fills every control from the session; nothing it sets is written back.
    void refresh();

    // Building: what the tabs and their sections are made with.
    using Read = std::function<double(const Project&)>;
    using Write = std::function<void(Project&, double)>;
    using ReadFlag = std::function<bool(const Project&)>;
    using WriteFlag = std::function<void(Project&, bool)>;

    // A new section at the foot of the page, titled, with its rows in a column.
    QVBoxLayout* addSection(const QString& title);
    // Closes the column of sections: what is added after this stays at the foot.
    void finishSections();
    QVBoxLayout* pageColumn() const { return m_column; }

    // Runs `fill` at each refresh, the page's signals quiet.
    void follow(std::function<void()> fill);
    // Whether a refresh is under way: a control hearing its own filling doesn't write.
    bool filling() const { return m_filling; }
    // One edit of the document named `name`, unless a refresh is filling; edits of the same `gesture` in
    // quick succession are one step.
    void edit(const QString& name, const std::function<void(Project&)>& change, const QString& gesture = {});

    // A slider over [low, high] bound to a field through `read` and `write`; a drag is one edit.
    InspectorSlider* addSlider(QBoxLayout* rows, const QString& label, double low, double high, Read read,
                               Write write, const QString& help = {});
    QCheckBox* addToggle(QBoxLayout* rows, const QString& label, ReadFlag read, WriteFlag write,
                         const QString& help = {});
    // A picker with its label on the left; its entries are added by the caller.
    QComboBox* addPicker(QBoxLayout* rows, const QString& label, const QString& help = {});
    // A line of text that wraps; `caption` sets it smaller, in the secondary colour.
    QLabel* addText(QBoxLayout* rows, const QString& text = {}, bool caption = false);
    // A label and a value on one line.
    QLabel* addValue(QBoxLayout* rows, const QString& label);
    QPushButton* addButton(QBoxLayout* rows, const QString& label, const QString& help = {},
                           bool destructive = false);
    // A line with an icon before wrapped text; the returned label holds the text.
    QLabel* addIconText(QBoxLayout* rows, std::initializer_list<const char*> iconNames, QWidget** line);
    // A line holding widgets side by side.
    QHBoxLayout* addLine(QBoxLayout* rows);
    // A busy bar with its text beside it.
    QWidget* addProgress(QBoxLayout* rows, const QString& text);
    // A column of rows inside `rows` that is shown and hidden as one: `group`.
    QVBoxLayout* addGroup(QBoxLayout* rows, QWidget** group);

protected:
    EditorSession& m_session;

private:
    std::vector<std::function<void()>> m_fills;
    QVBoxLayout* m_column;
    bool m_filling = false;
};

// The first icon of the theme among `names`, in that order; the last one when the theme has none.
QIcon themeIcon(std::initializer_list<const char*> names);
// Marks a button as one that removes something: red text while it is enabled, the window's red.
void markDestructive(QPushButton* button);
// Takes the rows out of the panel at once; a row's own button may be the one whose click led here, so
// the rows themselves go at the next turn of the event loop.
void discardRows(QBoxLayout* rows);
// printf into a QString.
QString format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

} // namespace marlowick
