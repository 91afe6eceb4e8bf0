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
        onJournalRequested: root.journalRequested()
        onSettingsRequested: root.settingsRequested()
        onQuitRequested: root.model.quit()
    }

    ScrollPage {
        id: page

        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: header.bottom
        anchors.bottom: parent.bottom
        contentHeight: content.y + content.height + Theme.margin

        Column {
            id: content

            x: Theme.margin * 2
            // In the middle of the panel; a long complaint in large letters is scrolled to.
            y: Math.max(Theme.step * 2, (root.height - height) / 2 + Theme.step * 4 - header.height)
            width: page.width - 2 * x
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
                wrapMode: Text.Wrap
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
}
