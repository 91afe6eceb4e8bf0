#pragma once

#include "base/TaskScope.h"

#include <QObject>
#include <QString>
#include <QtQmlIntegration>
#include <stop_token>

namespace ostrel {

class AppModel;

/// The fields of the settings screen, over the working copy of the settings. Main thread.
class SettingsForm : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of PopoverModel")

    Q_PROPERTY(QString outputDirectory READ outputDirectory WRITE setOutputDirectory NOTIFY draftChanged)
    Q_PROPERTY(QString instructions READ instructions WRITE setInstructions NOTIFY draftChanged)
    Q_PROPERTY(bool instructionsAreDefault READ instructionsAreDefault NOTIFY draftChanged)
    Q_PROPERTY(bool hasUnsavedChanges READ hasUnsavedChanges NOTIFY draftChanged)
    Q_PROPERTY(bool saving READ isSaving NOTIFY savingChanged)
    /// Why the settings were not saved, or what else is wrong; empty where nothing is.
    Q_PROPERTY(QString error READ error NOTIFY errorChanged)
    Q_PROPERTY(bool usesByokInference READ usesByokInference NOTIFY draftChanged)
    Q_PROPERTY(QString byokInferenceStatusText READ byokInferenceStatusText NOTIFY draftChanged)
    Q_PROPERTY(QString byokInferenceDetailText READ byokInferenceDetailText NOTIFY draftChanged)

public:
    /// The model outlives this object.
    explicit SettingsForm(AppModel &model);
    ~SettingsForm() override;

    QString outputDirectory() const;
    void setOutputDirectory(const QString &path);
    QString instructions() const;
    void setInstructions(const QString &text);
    bool instructionsAreDefault() const;
    bool hasUnsavedChanges() const;
    bool isSaving() const { return m_saving; }
    QString error() const;
    bool usesByokInference() const;
    QString byokInferenceStatusText() const;
    QString byokInferenceDetailText() const;

    Q_INVOKABLE void restoreDefaultInstructions();
    Q_INVOKABLE void chooseOutputDirectory();
    /// Saves the working copy. A call while one is being saved does nothing.
    Q_INVOKABLE void save();
    /// Asks whether the screen may be left; `mayLeave` or `mustStay` answers.
    Q_INVOKABLE void prepareToLeaveSettings();
    Q_INVOKABLE void addByokInferenceKey();
    Q_INVOKABLE void useOstrelInference();

Q_SIGNALS:
    void draftChanged();
    void savingChanged();
    void errorChanged();
    void mayLeave();
    void mustStay();

private:
    Task<> runSave(std::stop_token stop);
    Task<> askToLeave(std::stop_token stop);
    void setSaving(bool saving);

    AppModel &m_model;
    bool m_saving = false;
    TaskScope m_tasks;
};

} // namespace ostrel
