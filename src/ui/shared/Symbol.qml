import QtQuick

// One of the drawings in icons/, in a colour.
Image {
    id: root

    required property string symbol
    property color color: Theme.ink
    property int size: 16

    width: size
    height: size
    sourceSize.width: size
    sourceSize.height: size
    source: "image://symbol/" + symbol + "/" + color
    asynchronous: false
    // Drawn in no time, so there is nothing to be kept.
    cache: false
    // What it means is said by whoever shows it.
    Accessible.ignored: true
}
