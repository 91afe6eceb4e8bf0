pragma Singleton

import QtQuick

// The look, in one place. PopoverView sets the first three by what the desktop says; everything follows at once.
QtObject {
    id: root

    property bool dark: false
    property real textScale: 1
    property bool reducedMotion: false

    // Paper, and what stands on it. ink3 is for marks that only repeat what stands beside them.
    readonly property color paper: dark ? "#1f1d1a" : "#faf6ee"
    readonly property color paper2: dark ? "#282521" : "#f3ede0"
    readonly property color card: dark ? "#262320" : "#fffdf8"
    readonly property color cardHover: dark ? "#2d2a26" : "#ffffff"
    readonly property color cardPressed: dark ? "#1f1d1a" : "#f3ede0"
    readonly property color line: dark ? "#38342e" : "#e4dccb"
    readonly property color ink: dark ? "#efe9dd" : "#2a2723"
    readonly property color ink2: dark ? "#a8a092" : "#6f685c"
    readonly property color ink3: dark ? "#756e62" : "#a39a8a"
    readonly property color accent: dark ? "#58b5ae" : "#1f6f6b"
    readonly property color accentHover: dark ? "#68c2bb" : "#257d79"
    readonly property color accentPressed: dark ? "#4ca59e" : "#195c59"
    readonly property color accentTint: dark ? "#26322f" : "#dfebe6"
    readonly property color accentInk: dark ? "#10201f" : "#ffffff"
    readonly property color record: dark ? "#ef6a5b" : "#c8392b"
    readonly property color ok: dark ? "#7cc08c" : "#3e7d4e"
    readonly property color error: dark ? "#f2897f" : "#b3261e"
    readonly property color scrim: dark ? "#a6000000" : "#662a2723"

    // Space, in logical pixels.
    readonly property int step: 4
    readonly property int margin: 16
    readonly property int headerHeight: 48
    readonly property int panelWidth: 320
    readonly property int windowMinHeight: 400
    readonly property int windowMaxHeight: 560
    readonly property int panelRadius: 14
    readonly property int cardRadius: 10
    readonly property int fieldRadius: 8
    readonly property int controlHeight: Math.round(32 * Math.max(1, textScale))
    readonly property int focusWidth: 2
    // What a card leaves to its contents. Longer words take several lines.
    readonly property int widestButton: panelWidth - 2 * 3 * step - 2 * margin
    // What is left for a field, or a text, beside a button; with less it gets a line of its own.
    readonly property int narrowestField: 120

    // Type. Both families are aliases that the system resolves to its own; their digits are tabular in Noto and DejaVu.
    readonly property string sans: Application.font.family
    readonly property string serif: "serif"
    readonly property string fixed: "monospace"
    readonly property int titleSize: Math.round(17 * textScale)
    readonly property int daySize: Math.round(16 * textScale)
    readonly property int brandSize: Math.round(15 * textScale)
    readonly property int bodySize: Math.round(13 * textScale)
    readonly property int labelSize: Math.round(12 * textScale)
    readonly property int noteSize: Math.round(11.5 * textScale)
    readonly property int bodyLine: Math.round(13 * 1.42 * textScale)
    readonly property int noteLine: Math.round(11.5 * 1.42 * textScale)

    // The width that something gets in a line with something else.
    function besides(whole: real, other: real, spacing: real): real {
        const rest = whole - other - spacing
        return rest >= narrowestField ? rest : whole
    }

    // Motion, in milliseconds.
    readonly property int slide: 24
    readonly property int screenDuration: reducedMotion ? 0 : 220
    readonly property int overlayDuration: reducedMotion ? 0 : 160
    readonly property int breathDuration: 1400
}
