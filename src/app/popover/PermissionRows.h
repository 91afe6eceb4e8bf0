#pragma once

#include "model/Permissions.h"

#include <QAbstractListModel>
#include <QtQmlIntegration>

namespace ostrel {

class AppModel;

/// The lines of the permissions screen: always the same three, of which `granted` changes. Main thread.
class PermissionRows : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of PopoverModel")

    Q_PROPERTY(bool shouldShowPermissionsGate READ shouldShowPermissionsGate NOTIFY gateChanged)
    Q_PROPERTY(bool canContinuePastPermissions READ canContinuePastPermissions NOTIFY gateChanged)

public:
    enum Role { TitleRole = Qt::UserRole, DetailRole, GrantedRole };

    /// The model outlives this object.
    explicit PermissionRows(AppModel &model);

    bool shouldShowPermissionsGate() const;
    bool canContinuePastPermissions() const;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// The button of a line.
    Q_INVOKABLE void request(int row);
    Q_INVOKABLE void continueWithoutRecommendedPermissions();

Q_SIGNALS:
    void gateChanged();

private:
    void update();

    AppModel &m_model;
    QList<PermissionPromptItem> m_items;
};

} // namespace ostrel
