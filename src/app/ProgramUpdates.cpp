#include "app/ProgramUpdates.h"

#include "model/AppModel.h"
#include "update/FeedUpdater.h"

namespace ostrel {

ProgramUpdates::ProgramUpdates(AppModel &model, Clock &clock, UserDefaults &defaults, InstalledProgram program,
                               std::function<void(const QString &path)> relaunch)
    : m_coordinator(program.bundle, [=, &clock, &defaults, &worker = m_worker](UpdaterDelegate &delegate) {
          return std::make_unique<FeedUpdater>(
              FeedUpdater::Dependencies{
                  .clock = clock, .defaults = defaults, .worker = worker, .program = program, .relaunch = relaunch},
              delegate);
      })
{
    m_coordinator.prepareForUpdateRelaunch = [&model](std::stop_token stop) {
        return model.prepareForUpdateRelaunch(std::move(stop));
    };
    m_coordinator.start();
}

} // namespace ostrel
