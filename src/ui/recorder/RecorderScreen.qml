import QtQuick
import Ostrel.Model
import Ostrel.Ui

// The record button, and one line that says how things stand.
FocusScope {
    id: root

    required property PopoverModel model

    signal journalRequested
    signal settingsRequested

    implicitHeight: Theme.windowMaxHeight

    Component.onCompleted: root.model.refreshJournal()

    HomeHeader {
        id: header

        anchors.left: parent.left
        anchors.right: parent.right
        title: qsTr("Tamsk Ostrel")
        hasJournal: true
        onJournalRequested: root.journalRequested()
        onSettingsRequested: root.settingsRequested()
        onQuitRequested: root.model.quit()
    }

    Column {
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.margins: Theme.margin * 2
        anchors.verticalCenter: parent.verticalCenter
        anchors.verticalCenterOffset: Theme.step * 4
        spacing: Theme.margin

        RecorderButtonStyle {
            id: button

            anchors.horizontalCenter: parent.horizontalCenter
            focus: true
            text: root.model.recordButtonTitle
            onClicked: root.model.toggleRecording()
            Accessible.description: root.model.recorderSubtext

            contentItem: Item {
                RecordGlyph {
                    anchors.centerIn: parent
                    recording: root.model.isRecording
                    waiting: root.model.isWaiting
                }
            }
        }

        Text {
            width: parent.width
            text: button.text
            textFormat: Text.PlainText
            color: Theme.ink
            horizontalAlignment: Text.AlignHCenter
            elide: Text.ElideRight
            topPadding: Theme.step
            font.family: Theme.sans
            font.pixelSize: Theme.titleSize
            font.weight: Font.DemiBold
            // The button is read out by the same words.
            Accessible.ignored: true
        }

        RecorderSubtext {
            width: parent.width
            text: root.model.recorderSubtext
            isError: root.model.recorderSubtextIsError
            isNotice: root.model.recorderSubtextIsBackfillNotice
        }

        ProviderBadge {
            anchors.horizontalCenter: parent.horizontalCenter
            visible: root.model.recordingProviderIndicatorText !== ""
        }
    }
}
