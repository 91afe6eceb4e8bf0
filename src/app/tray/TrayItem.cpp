#include "app/tray/TrayItem.h" // moc reads the headers of sources
