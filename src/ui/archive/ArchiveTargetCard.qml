import QtQuick
import QtQuick.Templates as T
import Ostrel.Model
import Ostrel.Ui

// Where the archive is to lie.
OverlayCard {
    id: root

    required property ArchiveTargetForm target
    required property ArchiveForm archive

    title: qsTr("Where the archive lies")
    onDismissed: target.closeArchiveTargetCard()

    CardPage {
        id: page

        width: parent.width

        Row {
            id: kinds

            width: parent.width
            spacing: Theme.step * 2
            enabled: !root.target.busy

            ChoicePill {
                width: (kinds.width - 2 * kinds.spacing) / 3
                focus: true
                text: qsTr("Folder")
                checked: root.target.kind === ArchiveTargetForm.Folder
                onClicked: root.target.kind = ArchiveTargetForm.Folder
            }
            ChoicePill {
                width: (kinds.width - 2 * kinds.spacing) / 3
                text: qsTr("S3 bucket")
                checked: root.target.kind === ArchiveTargetForm.S3
                onClicked: root.target.kind = ArchiveTargetForm.S3
            }
            ChoicePill {
                width: (kinds.width - 2 * kinds.spacing) / 3
                text: qsTr("rclone")
                checked: root.target.kind === ArchiveTargetForm.Rclone
                onClicked: root.target.kind = ArchiveTargetForm.Rclone
            }
        }

        // A bucket's fields in large letters are higher than the panel.
        Flickable {
            id: flickable

            readonly property Item focused: Window.activeFocusItem
            // What stands on the card besides: the title, the kinds, the message and the buttons.
            readonly property real besides: Theme.controlHeight * 3 + Theme.bodyLine * 3 + Theme.margin * 6

            width: parent.width
            height: Math.min(contentHeight, Math.max(Theme.controlHeight * 2, root.height - besides))
            contentHeight: fields.implicitHeight
            boundsBehavior: Flickable.StopAtBounds
            clip: contentHeight > height
            T.ScrollBar.vertical: ThinScrollBar {}
            onFocusedChanged: reveal(focused)

            function reveal(item: Item) {
                let parent = item
                while (parent && parent !== contentItem)
                    parent = parent.parent
                if (!parent)
                    return
                const top = item.mapToItem(contentItem, 0, 0).y
                contentY = Math.max(Math.min(contentY, top), top + item.height - height)
            }

            Column {
                id: fields

                width: flickable.width
                spacing: Theme.step * 2
                enabled: !root.target.busy

                Loader {
                    width: parent.width
                    sourceComponent: root.target.kind === ArchiveTargetForm.S3 ? bucket
                        : root.target.kind === ArchiveTargetForm.Rclone ? rclone : folder
                }
                CheckLine {
                    width: parent.width
                    text: qsTr("Keep pictures bit for bit, which takes more room")
                    checked: root.target.lossless
                    onToggled: root.target.lossless = checked
                }
            }
        }

        MessageLine {
            width: parent.width
            text: root.archive.archiveMessage
            isError: root.archive.archiveMessageIsError
            maximumLineCount: 4
            elide: Text.ElideRight
        }

        trailing: [
            BusyDots {
                visible: root.target.busy
                height: Theme.controlHeight + Theme.step
            },
            ChooseButtonStyle {
                anchors.verticalCenter: parent.verticalCenter
                text: qsTr("Cancel")
                onClicked: root.target.closeArchiveTargetCard()
            },
            PillButtonStyle {
                enabled: !root.target.busy
                text: qsTr("Use this place")
                onClicked: root.target.saveArchiveTarget()
            }
        ]
    }

    Component {
        id: folder

        FolderTargetFields {
            target: root.target
            onAccepted: root.target.saveArchiveTarget()
        }
    }
    Component {
        id: bucket

        BucketTargetFields {
            target: root.target
            onAccepted: root.target.saveArchiveTarget()
        }
    }
    Component {
        id: rclone

        RcloneTargetFields {
            target: root.target
            onAccepted: root.target.saveArchiveTarget()
        }
    }
}
