#include "app/popover/SettingsForm.h"

#include "model/AppModel.h"
#include "model/InferenceSettings.h"

namespace ostrel {

SettingsForm::SettingsForm(AppModel &model) : m_model(model)
{
    connect(&model, &AppModel::draftSettingsChanged, this, &SettingsForm::draftChanged);
    connect(&model, &AppModel::settingsChanged, this, &SettingsForm::draftChanged);
    connect(&model, &AppModel::helperErrorChanged, this, &SettingsForm::errorChanged);
}

SettingsForm::~SettingsForm() = default;

QString SettingsForm::outputDirectory() const
{
    return m_model.draftSettings().outputDirectory;
}

void SettingsForm::setOutputDirectory(const QString &path)
{
    ObserverSettings draft = m_model.draftSettings();
    draft.outputDirectory = path;
    m_model.setDraftSettings(draft);
}

QString SettingsForm::instructions() const
{
    return m_model.draftSettings().instructions;
}

void SettingsForm::setInstructions(const QString &text)
{
    ObserverSettings draft = m_model.draftSettings();
    draft.instructions = text;
    m_model.setDraftSettings(draft);
}

bool SettingsForm::instructionsAreDefault() const
{
    return instructions() == ObserverSettings::defaults().instructions;
}

bool SettingsForm::hasUnsavedChanges() const
{
    return m_model.draftSettings() != m_model.settings();
}

QString SettingsForm::error() const
{
    return m_model.visibleHelperError().value_or(QString());
}

bool SettingsForm::usesByokInference() const
{
    return usesGoogleVertex(m_model.draftSettings());
}

QString SettingsForm::byokInferenceStatusText() const
{
    return m_model.byokInferenceStatusText();
}

QString SettingsForm::byokInferenceDetailText() const
{
    return m_model.byokInferenceDetailText();
}

void SettingsForm::restoreDefaultInstructions()
{
    setInstructions(ObserverSettings::defaults().instructions);
}

void SettingsForm::chooseOutputDirectory()
{
    m_model.chooseOutputDirectory();
}

void SettingsForm::save()
{
    if (!m_saving)
        m_tasks.spawn([this](std::stop_token stop) { return runSave(std::move(stop)); });
}

Task<> SettingsForm::runSave(std::stop_token stop)
{
    setSaving(true);
    co_await m_model.saveSettings(m_model.draftSettings()); // a failure is the helper error
    if (!stop.stop_requested())
        setSaving(false);
}

void SettingsForm::prepareToLeaveSettings()
{
    m_tasks.spawn([this](std::stop_token stop) { return askToLeave(std::move(stop)); });
}

Task<> SettingsForm::askToLeave(std::stop_token stop)
{
    const bool allowed = co_await m_model.prepareToLeaveSettings();
    if (stop.stop_requested())
        co_return;
    if (allowed)
        Q_EMIT mayLeave();
    else
        Q_EMIT mustStay();
}

void SettingsForm::addByokInferenceKey()
{
    m_model.addByokInferenceKey();
}

void SettingsForm::useOstrelInference()
{
    m_model.useOstrelInference();
}

void SettingsForm::setSaving(bool saving)
{
    if (std::exchange(m_saving, saving) != saving)
        Q_EMIT savingChanged();
}

} // namespace ostrel
