#include "foreign_text.h"
#include "private_storage.h"
#include "setup_set_manager.h"
#include "state_location.h"

#include <QFile>
#include <cstdio>
#include <string>

QString getSettingDirectory()
{
    static const QString directory = [] {
        const std::string state = handset_state::location();
        const std::string settings = state + "/settings";
        handset_state::Refusal refusal = handset_state::makeStateDirectory(state);
        if (!refusal)
            refusal = handset_state::makeFolder(settings);
        // Files in a folder that is refused are neither read nor written.
        if (refusal)
            std::fprintf(stderr, "kubappbase: %s\n",
                         foreign_text::printable(refusal.text()).c_str());
        return QFile::decodeName(settings.c_str()) + u'/';
    }();
    return directory;
}
