#include "app/popover/PermissionRows.h"

#include "model/AppModel.h"

namespace ostrel {

PermissionRows::PermissionRows(AppModel &model) : m_model(model), m_items(model.permissionPromptItems())
{
    connect(&model, &AppModel::permissionsChanged, this, &PermissionRows::update);
    connect(&model, &AppModel::dismissedRecommendedPermissionKindsChanged, this, &PermissionRows::gateChanged);
}

bool PermissionRows::shouldShowPermissionsGate() const
{
    return m_model.shouldShowPermissionsGate();
}

bool PermissionRows::canContinuePastPermissions() const
{
    return m_model.canContinuePastPermissions();
}

int PermissionRows::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

QVariant PermissionRows::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const PermissionPromptItem &item = m_items[index.row()];
    switch (role) {
    case TitleRole:
        return item.title;
    case DetailRole:
        return item.detail;
    case GrantedRole:
        return item.granted;
    default:
        return {};
    }
}

QHash<int, QByteArray> PermissionRows::roleNames() const
{
    return {{TitleRole, "title"}, {DetailRole, "detail"}, {GrantedRole, "granted"}};
}

void PermissionRows::request(int row)
{
    if (row >= 0 && row < m_items.size())
        m_model.requestPermission(m_items[row].kind);
}

void PermissionRows::continueWithoutRecommendedPermissions()
{
    m_model.continueWithoutRecommendedPermissions();
}

void PermissionRows::update()
{
    m_items = m_model.permissionPromptItems();
    Q_EMIT dataChanged(index(0), index(rowCount() - 1), {GrantedRole});
    Q_EMIT gateChanged();
}

} // namespace ostrel
