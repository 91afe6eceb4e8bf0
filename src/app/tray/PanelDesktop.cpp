#include "app/tray/PanelDesktop.h" // moc reads the headers of sources
