#include "app/menu_bar.h"

#include <QAction>
#include <QFileInfo>
#include <QMenu>
#include <QMenuBar>

#include "app/application.h"
#include "app/document_window.h"

namespace app {

QList<QKeySequence> commandShortcuts(Command command) {
    using K = QKeySequence;
    switch (command) {
        case Command::importMedia:
            return {K(Qt::CTRL | Qt::Key_I)};
        case Command::exportProject:
            return {K(Qt::CTRL | Qt::Key_E)};
        case Command::zoomIn:
            return {K(Qt::CTRL | Qt::Key_Equal), K(Qt::CTRL | Qt::Key_Plus)};
        case Command::zoomOut:
            return {K(Qt::CTRL | Qt::Key_Minus)};
        case Command::zoomToFit:
            return {K(Qt::CTRL | Qt::Key_0)};
        case Command::fitWindowToVideo:
            return {K(Qt::CTRL | Qt::SHIFT | Qt::Key_0),
                    K(Qt::CTRL | Qt::SHIFT | Qt::Key_ParenRight)};
        case Command::playPause:
            return {K(Qt::Key_Space)};
        case Command::splitAtPlayhead:
            return {K(Qt::CTRL | Qt::Key_K)};
        case Command::setIn:
            return {K(Qt::Key_I)};
        case Command::setOut:
            return {K(Qt::Key_O)};
        case Command::toggleLink:
            // Ctrl+Alt+L locks the screen on the common Linux desktops.
            return {K(Qt::CTRL | Qt::SHIFT | Qt::Key_L)};
        case Command::deleteSelection:
            return {K(Qt::Key_Delete), K(Qt::Key_Backspace)};
        case Command::nudgePlayheadBack:
            return {K(Qt::Key_Left)};
        case Command::nudgePlayheadForward:
            return {K(Qt::Key_Right)};
        case Command::nudgePlayheadBack10:
            return {K(Qt::SHIFT | Qt::Key_Left)};
        case Command::nudgePlayheadForward10:
            return {K(Qt::SHIFT | Qt::Key_Right)};
        case Command::nudgeClipBack:
            return {K(Qt::ALT | Qt::Key_Left)};
        case Command::nudgeClipForward:
            return {K(Qt::ALT | Qt::Key_Right)};
        case Command::nudgeClipBack10:
            return {K(Qt::ALT | Qt::SHIFT | Qt::Key_Left)};
        case Command::nudgeClipForward10:
            return {K(Qt::ALT | Qt::SHIFT | Qt::Key_Right)};
        case Command::cut:
            return {K(Qt::CTRL | Qt::Key_X)};
        case Command::copy:
            return {K(Qt::CTRL | Qt::Key_C)};
        case Command::paste:
            return {K(Qt::CTRL | Qt::Key_V)};
        case Command::undo:
            return {K(Qt::CTRL | Qt::Key_Z)};
        case Command::redo:
            return {K(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), K(Qt::CTRL | Qt::Key_Y)};
        case Command::reverse:
        case Command::retime:
        case Command::copyCurrentFrame:
            return {};
    }
    return {};
}

namespace {

QAction* plainAction(QMenu* menu, const QString& title, const QString& icon, QKeySequence key) {
    QAction* action = menu->addAction(QIcon::fromTheme(icon), title);
    if (!key.isEmpty()) action->setShortcut(key);
    return action;
}

void addCommandGroups(QMenu* menu, const CommandMenu& spec, DocumentWindow& window,
                      std::map<Command, QAction*>& actions) {
    for (std::size_t g = 0; g < spec.groups.size(); ++g) {
        if (g > 0) menu->addSeparator();
        for (Command command : spec.groups[g]) {
            QAction* action = menu->addAction(QString());
            action->setShortcuts(commandShortcuts(command));
            // Window-wide, so the keys work whichever view has the focus.
            action->setShortcutContext(Qt::WindowShortcut);
            if (command == Command::reverse) action->setCheckable(true);
            QObject::connect(action, &QAction::triggered, &window,
                             [&window, command] { window.runCommand(command); });
            actions[command] = action;
        }
    }
}

const CommandMenu& specNamed(const char* title) {
    for (const auto& menu : commandMenus())
        if (menu.title == title) return menu;
    static const CommandMenu none;
    return none;
}

void fillRecentMenu(QMenu* menu, Application& app) {
    menu->clear();
    const QStringList files = app.recentFiles();
    for (const QString& file : files)
        menu->addAction(QFileInfo(file).fileName(), &app,
                        [&app, file] { app.openProject(file.toStdString()); })
            ->setToolTip(file);
    if (!files.isEmpty()) menu->addSeparator();
    QAction* clear =
        menu->addAction(QStringLiteral("Clear Menu"), &app, &Application::clearRecentFiles);
    clear->setEnabled(!files.isEmpty());
}

}  // namespace

std::map<Command, QAction*> buildMenuBar(DocumentWindow& window, Application& app) {
    std::map<Command, QAction*> actions;
    QMenuBar* bar = window.menuBar();

    QMenu* file = bar->addMenu(QStringLiteral("&File"));
    QObject::connect(
        plainAction(file, QStringLiteral("New"), QStringLiteral("document-new"), QKeySequence::New),
        &QAction::triggered, &app, [&app] { app.newDocument(); });
    QObject::connect(plainAction(file, QStringLiteral("Open…"), QStringLiteral("document-open"),
                                 QKeySequence::Open),
                     &QAction::triggered, &window, [&app, &window] { app.openWithPanel(&window); });
    QMenu* recent = file->addMenu(QIcon::fromTheme(QStringLiteral("document-open-recent")),
                                  QStringLiteral("Open Recent"));
    QObject::connect(recent, &QMenu::aboutToShow, recent,
                     [recent, &app] { fillRecentMenu(recent, app); });
    fillRecentMenu(recent, app);
    file->addSeparator();
    QObject::connect(plainAction(file, QStringLiteral("Close"), QStringLiteral("window-close"),
                                 QKeySequence::Close),
                     &QAction::triggered, &window, &QWidget::close);
    QObject::connect(plainAction(file, QStringLiteral("Save"), QStringLiteral("document-save"),
                                 QKeySequence::Save),
                     &QAction::triggered, &window, [&window] { window.save(); });
    QObject::connect(
        plainAction(file, QStringLiteral("Save As…"), QStringLiteral("document-save-as"),
                    QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S)),
        &QAction::triggered, &window, [&window] { window.saveAs(); });
    file->addSeparator();
    addCommandGroups(file, specNamed("File"), window, actions);
    file->addSeparator();
    QObject::connect(plainAction(file, QStringLiteral("Quit"), QStringLiteral("application-exit"),
                                 QKeySequence(Qt::CTRL | Qt::Key_Q)),
                     &QAction::triggered, &app, &Application::quit);

    for (const char* title : {"Edit", "View", "Clip", "Navigate"}) {
        QMenu* menu = bar->addMenu(QStringLiteral("&") + QString::fromUtf8(title));
        addCommandGroups(menu, specNamed(title), window, actions);
        QObject::connect(menu, &QMenu::aboutToShow, &window,
                         [&window] { window.refreshCommands(); });
    }

    QMenu* help = bar->addMenu(QStringLiteral("&Help"));
    QObject::connect(plainAction(help, QStringLiteral("Vantrell Help"),
                                 QStringLiteral("help-contents"), QKeySequence::HelpContents),
                     &QAction::triggered, &app, &Application::openHelp);
    QObject::connect(plainAction(help, QStringLiteral("Check for Updates…"),
                                 QStringLiteral("system-software-update"), {}),
                     &QAction::triggered, &window,
                     [&app, &window] { app.checkForUpdates(&window); });
    help->addSeparator();
    QObject::connect(
        plainAction(help, QStringLiteral("About Vantrell"), QStringLiteral("help-about"), {}),
        &QAction::triggered, &window, [&app, &window] { app.showAbout(&window); });
    return actions;
}

void refreshMenuActions(const std::map<Command, QAction*>& actions, const model::Project* project) {
    for (const auto& [command, action] : actions) {
        CommandState state = commandState(command, project);
        action->setText(QString::fromStdString(state.title));
        action->setIcon(QIcon::fromTheme(QString::fromStdString(state.icon)));
        action->setEnabled(state.enabled);
        if (state.checked) action->setChecked(*state.checked);
    }
}

}  // namespace app
