import QtQuick
import QtQuick.Templates as T
import Ostrel.Model
import Ostrel.Ui

// The whole interface: one screen at a time on a sheet of paper, and at most one card laid over it.
FocusScope {
    id: root

    enum PopoverScreen {
        Home,
        Journal,
        Settings
    }

    required property PopoverModel model
    // The alert that stands on the panel; none where nobody asks anything.
    property DialogSheet sheet: null

    property int screen: PopoverView.Home
    property bool navigatingForward: true
    // The height that each screen asks for by itself, by its number; the panel takes the one of the screen shown.
    property var measuredHeights: ({})
    readonly property real wantedHeight: {
        const measured = measuredHeights[screen] ?? Theme.windowMaxHeight
        return Math.max(Theme.windowMinHeight, Math.min(measured, Theme.windowMaxHeight))
    }

    implicitWidth: Theme.panelWidth
    implicitHeight: Theme.windowMaxHeight
    focus: true
    LayoutMirroring.enabled: Application.layoutDirection === Qt.RightToLeft
    LayoutMirroring.childrenInherit: true

    function show(next: int) {
        if (next === screen)
            return
        navigatingForward = next !== PopoverView.Home
        screen = next
        if (next === PopoverView.Home)
            stack.pop(null, stack.operation)
        else
            stack.push(next === PopoverView.Journal ? journal : settings, {}, stack.operation)
    }

    function measure(which: int, height: real) {
        const heights = Object.assign({}, measuredHeights)
        heights[which] = height
        measuredHeights = heights
    }

    Binding {
        target: Theme
        property: "dark"
        value: root.model.appearance.dark
    }
    Binding {
        target: Theme
        property: "textScale"
        value: root.model.appearance.textScale
    }
    Binding {
        target: Theme
        property: "reducedMotion"
        value: root.model.appearance.reducedMotion
    }

    PaperBackground {
        anchors.fill: parent
    }

    ScreenStack {
        id: stack

        anchors.fill: parent
        focus: !overlay.active && !alert.active
        enabled: !overlay.active && !alert.active
        initialItem: HomeScreen {
            model: root.model
            onImplicitHeightChanged: root.measure(PopoverView.Home, implicitHeight)
            Component.onCompleted: root.measure(PopoverView.Home, implicitHeight)
            onJournalRequested: root.show(PopoverView.Journal)
            onSettingsRequested: root.show(PopoverView.Settings)
        }
    }

    Component {
        id: journal

        JournalScreen {
            model: root.model
            shown: T.StackView.status !== T.StackView.Inactive && root.Window.visibility !== Window.Hidden
            onImplicitHeightChanged: root.measure(PopoverView.Journal, implicitHeight)
            Component.onCompleted: root.measure(PopoverView.Journal, implicitHeight)
            onBack: root.show(PopoverView.Home)
        }
    }
    Component {
        id: settings

        SettingsScreen {
            model: root.model
            onImplicitHeightChanged: root.measure(PopoverView.Settings, implicitHeight)
            Component.onCompleted: root.measure(PopoverView.Settings, implicitHeight)
            onBack: root.show(PopoverView.Home)
        }
    }

    OverlayHost {
        id: overlay

        anchors.fill: parent
        model: root.model
        enabled: !alert.active
        onActiveChanged: if (!active) stack.forceActiveFocus()
    }

    Loader {
        id: alert

        anchors.fill: parent
        active: root.sheet?.isShown ?? false
        focus: active
        sourceComponent: AlertSheet {
            sheet: root.sheet
        }
        onActiveChanged: if (!active) ((overlay.active ? overlay : stack) as Item).forceActiveFocus()
    }
}
