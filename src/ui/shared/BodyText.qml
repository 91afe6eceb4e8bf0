import QtQuick

Text {
    id: root

    color: Theme.ink
    font.family: Theme.sans
    font.pixelSize: Theme.bodySize
    lineHeight: Theme.bodyLine
    lineHeightMode: Text.FixedHeight
    textFormat: Text.PlainText
    wrapMode: Text.Wrap
    horizontalAlignment: Text.AlignLeft
    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
