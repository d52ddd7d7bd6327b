#include "ui/Inspector.h"

#include "ui/InspectorAudioTab.h"
#include "ui/InspectorScreenTab.h"

#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QTabBar>
#include <QVBoxLayout>

namespace marlowick {

namespace {

QScrollArea* scrolling(QWidget* content, QWidget* parent) {
    auto* scroll = new QScrollArea(parent);
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setFrameShape(QFrame::NoFrame);
    return scroll;
}

// The zoom page before a zoom editor is given: a way back to the sections.
QWidget* placeholderZoomPage(Inspector* inspector) {
    auto* page = new QWidget;
    auto* column = new QVBoxLayout(page);
    auto* back = new QPushButton(themeIcon({"go-previous"}), QObject::tr("Back"), page);
    back->setAutoDefault(false);
    QObject::connect(back, &QPushButton::clicked, inspector, &Inspector::showSections);
    column->addWidget(back, 0, Qt::AlignLeft);
    column->addStretch(1);
    return page;
}

} // namespace

Inspector::Inspector(EditorSession& session, QWidget* parent)
    : QWidget(parent) {
    m_tabs = new QTabBar(this);
    m_tabs->setExpanding(true);
    m_tabs->setDrawBase(false);
    m_tabs->addTab(themeIcon({"video-display"}), tr("Screen"));
    m_tabs->addTab(themeIcon({"audio-x-generic"}), tr("Audio"));

    m_screen = new InspectorScreenTab(session);
    m_audio = new InspectorAudioTab(session);
    m_screenScroll = scrolling(m_screen, this);
    m_screenPages = new QStackedWidget(this);
    m_screenPages->addWidget(m_screenScroll);
    m_screenPages->addWidget(placeholderZoomPage(this));
    m_pages = new QStackedWidget(this);
    m_pages->addWidget(m_screenPages);
    m_pages->addWidget(scrolling(m_audio, this));

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 6, 0, 0);
    column->addWidget(m_tabs);
    column->addWidget(m_pages, 1);
    setMinimumWidth(320);

    connect(m_tabs, &QTabBar::currentChanged, m_pages, &QStackedWidget::setCurrentIndex);
    connect(m_screen, &InspectorScreenTab::zoomsRequested, this, &Inspector::showZooms);
}

Inspector::Tab Inspector::tab() const {
    return m_tabs->currentIndex() == 1 ? Tab::audio : Tab::screen;
}

void Inspector::setTab(Tab tab) {
    m_tabs->setCurrentIndex(tab == Tab::audio ? 1 : 0);
}

void Inspector::setZoomEditor(QWidget* editor) {
    QWidget* old = m_screenPages->widget(1);
    const bool showing = showingZooms();
    m_screenPages->removeWidget(old);
    old->deleteLater();
    m_zoomEditor = editor;
    m_screenPages->insertWidget(1, editor ? editor : placeholderZoomPage(this));
    if (showing) {
        m_screenPages->setCurrentIndex(1);
    }
}

bool Inspector::showingZooms() const {
    return m_screenPages->currentIndex() == 1;
}

void Inspector::showZooms() {
    setTab(Tab::screen);
    if (!showingZooms()) {
        m_screenPages->setCurrentIndex(1);
        emit showingZoomsChanged(true);
    }
}

void Inspector::showSections() {
    if (showingZooms()) {
        m_screenPages->setCurrentIndex(0);
        emit showingZoomsChanged(false);
    }
}

} // namespace marlowick
