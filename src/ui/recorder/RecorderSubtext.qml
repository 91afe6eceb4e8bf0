import QtQuick
import Ostrel.Ui

// Where the journal goes, or what keeps it from getting there.
NoteText {
    id: root

    required property bool isError
    required property bool isNotice

    horizontalAlignment: Text.AlignHCenter
    color: isError ? Theme.error : isNotice ? Theme.ink : Theme.ink2
    font.italic: isNotice
    font.pixelSize: isError ? Theme.labelSize : Theme.noteSize
    // A path is told from its ends, a sentence from its beginning.
    elide: isError || isNotice ? Text.ElideRight : Text.ElideMiddle
    wrapMode: isError || isNotice ? Text.Wrap : Text.NoWrap
    Accessible.role: isError ? Accessible.AlertMessage : Accessible.StaticText
}
