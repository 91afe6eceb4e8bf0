#include "app/NoDialogs.h"

namespace ostrel {

Task<DialogAlertAnswer> NoDialogs::showAlert(DialogAlert, DialogPlacement, std::stop_token)
{
    co_return {};
}

Task<PanelAnswer> NoDialogs::showOpenPanel(OpenPanel, DialogPlacement, std::stop_token)
{
    co_return {};
}

Task<PanelAnswer> NoDialogs::showSavePanel(SavePanel, DialogPlacement, std::stop_token)
{
    co_return {};
}

} // namespace ostrel
