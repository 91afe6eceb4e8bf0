import QtQuick

// A symbol in the header. Its text is read out, and shown when the pointer rests.
HeaderIconButtonStyle {
    id: root

    HintBubble {
        text: root.text
        visible: (root.hovered || root.visualFocus) && root.text !== ""
    }
}
