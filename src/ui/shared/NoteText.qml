import QtQuick

// What explains something else.
BodyText {
    color: Theme.ink2
    font.pixelSize: Theme.noteSize
    lineHeight: Theme.noteLine
}
