#include "app/tray/PopoverWindow.h" // moc reads the headers of sources
