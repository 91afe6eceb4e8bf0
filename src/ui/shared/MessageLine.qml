import QtQuick

// One line of feedback: an error, or that something was done.
NoteText {
    id: root

    property bool isError: false

    visible: text !== ""
    color: isError ? Theme.error : Theme.ok
    Accessible.role: isError ? Accessible.AlertMessage : Accessible.StaticText
}
