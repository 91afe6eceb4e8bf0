import QtQuick
import QtQuick.Templates as T
import Ostrel.Model
import Ostrel.Ui

// The days, newest first. The arrow keys go from line to line, Return folds and opens a day.
ListView {
    id: root

    required property JournalListModel journal
    // Whether the keyboard, and not the pointer, has brought the focus here.
    property bool keyboardIsHere: false

    model: journal
    activeFocusOnTab: true
    keyNavigationEnabled: false
    highlightFollowsCurrentItem: false
    boundsBehavior: Flickable.StopAtBounds
    clip: true
    leftMargin: Theme.margin
    rightMargin: Theme.margin
    bottomMargin: Theme.margin
    T.ScrollBar.vertical: ThinScrollBar {}

    Accessible.role: Accessible.List
    Accessible.name: qsTr("Journal")

    function goTo(index: int) {
        keyboardIsHere = true
        currentIndex = Math.max(0, Math.min(index, count - 1))
        positionViewAtIndex(currentIndex, ListView.Contain)
    }

    onActiveFocusChanged: if (!activeFocus) keyboardIsHere = false
    Keys.onUpPressed: goTo(currentIndex - 1)
    Keys.onDownPressed: goTo(keyboardIsHere ? currentIndex + 1 : currentIndex)
    Keys.onReturnPressed: toggleCurrent()
    Keys.onEnterPressed: toggleCurrent()
    Keys.onSpacePressed: toggleCurrent()
    Keys.onPressed: event => {
        if (event.key === Qt.Key_Home)
            goTo(0)
        else if (event.key === Qt.Key_End)
            goTo(count - 1)
        else if (event.key === Qt.Key_PageDown)
            scrollBy(height)
        else if (event.key === Qt.Key_PageUp)
            scrollBy(-height)
        else
            return
        event.accepted = true
    }

    function toggleCurrent() {
        const line = currentItem as JournalLine
        if (line && line.kind === JournalListModel.Day)
            journal.toggleDay(line.dateKey)
    }

    function scrollBy(distance: real) {
        const end = Math.max(originY, originY + contentHeight + bottomMargin - height)
        contentY = Math.max(originY, Math.min(contentY + distance, end))
    }

    delegate: JournalLine {
        width: ListView.view.width - 2 * Theme.margin
        current: ListView.isCurrentItem && root.keyboardIsHere
        onToggled: key => root.journal.toggleDay(key)
    }
}
