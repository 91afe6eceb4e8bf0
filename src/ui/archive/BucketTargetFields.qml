import QtQuick
import Ostrel.Model
import Ostrel.Ui

Column {
    id: root

    required property ArchiveTargetForm target

    signal accepted

    spacing: Theme.step + 2

    TargetTextField {
        width: parent.width
        title: qsTr("Endpoint")
        placeholder: "https://s3.example.org"
        text: root.target.endpoint
        onEdited: text => root.target.endpoint = text
        onAccepted: root.accepted()
    }
    TargetTextField {
        width: parent.width
        title: qsTr("Region")
        text: root.target.region
        onEdited: text => root.target.region = text
        onAccepted: root.accepted()
    }
    TargetTextField {
        width: parent.width
        title: qsTr("Bucket")
        text: root.target.bucket
        onEdited: text => root.target.bucket = text
        onAccepted: root.accepted()
    }
    TargetTextField {
        width: parent.width
        title: qsTr("Folder in it")
        placeholder: qsTr("None")
        text: root.target.prefix
        onEdited: text => root.target.prefix = text
        onAccepted: root.accepted()
    }
    TargetTextField {
        width: parent.width
        title: qsTr("Access key ID")
        text: root.target.accessKeyId
        onEdited: text => root.target.accessKeyId = text
        onAccepted: root.accepted()
    }
    TargetTextField {
        width: parent.width
        title: qsTr("Secret key")
        placeholder: root.target.secretIsKept ? qsTr("Stays as it is") : ""
        text: root.target.secretAccessKey
        secret: true
        onEdited: text => root.target.secretAccessKey = text
        onAccepted: root.accepted()
    }
    CheckLine {
        width: parent.width
        text: qsTr("Bucket's name in the path")
        checked: root.target.pathStyle
        onToggled: root.target.pathStyle = checked
    }
}
