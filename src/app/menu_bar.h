#pragma once

#include <QKeySequence>
#include <QList>
#include <map>

#include "app/menu_commands.h"

class QAction;

namespace app {

class Application;
class DocumentWindow;

// A command's keys: Ctrl where the Mac has Command, with the Linux conventions where they
// differ (redo is Ctrl+Shift+Z and Ctrl+Y).
QList<QKeySequence> commandShortcuts(Command command);

// Fills the window's menu bar: File, Edit, View, Clip, Navigate and Help. Answers the
// actions of the project commands, for refreshMenuActions.
std::map<Command, QAction*> buildMenuBar(DocumentWindow& window, Application& app);

// Sets each action's title, icon, check mark and enabled state from the project (null:
// no project).
void refreshMenuActions(const std::map<Command, QAction*>& actions, const model::Project* project);

}  // namespace app
