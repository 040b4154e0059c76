// Says which texts a program at this place uses: language, title, version.
#include <cstdio>

#include "app/xml_io.h"

int main() {
    const auto strings = tarn::XMLIO::GetInstance();
    std::printf("%s|%s|%s\n", strings->GetLanguage().c_str(),
                strings->GetString("IDS_APP_TITLE").c_str(), strings->GetVersionText().c_str());
}
