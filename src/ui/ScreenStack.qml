import QtQuick
import QtQuick.Templates as T
import Ostrel.Ui

// Going forward, the next screen comes in from the trailing edge; going back, from the leading one.
T.StackView {
    id: root

    readonly property int operation: Theme.screenDuration > 0 ? T.StackView.Transition : T.StackView.Immediate
    readonly property int distance: LayoutMirroring.enabled ? -Theme.slide : Theme.slide

    onCurrentItemChanged: if (currentItem) currentItem.forceActiveFocus()

    pushEnter: SlideAndFade {
        from: root.distance
        fadeTo: 1
    }
    pushExit: SlideAndFade {
        to: -root.distance
        fadeTo: 0
    }
    popEnter: SlideAndFade {
        from: -root.distance
        fadeTo: 1
    }
    popExit: SlideAndFade {
        to: root.distance
        fadeTo: 0
    }
}
