#include "survey_doc.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "qv_api2.h"
#include "sim/qvsim.h"

namespace qv::accuracy {

int AddTraceSensor(const char* serial, int address) {
    qvsim_sensor_config config;
    qvsim_sensor_config_init(&config);
    config.serial = serial;
    config.product = "QV442A";
    config.address = address;
    const int id = qvsim_sensor_add(&config);
    if (id < 0 || QV_InitializeSensor_SN(serial) < 1 || PP_SetTriggerSoure(address, 2) != 1) return -1;
    return id;
}

std::string Fixed(const char* format, double v) {
    if (std::isnan(v)) return "-";
    char text[64];
    std::snprintf(text, sizeof text, format, v);
    return text;
}

bool ReplaceSection(const char* file, const char* heading, const std::string& section) {
    std::string text;
    {
        std::ifstream in(file);
        std::ostringstream all;
        all << in.rdbuf();
        text = all.str();
    }
    const std::size_t at = text.find(heading);
    if (at != std::string::npos) text.erase(at);
    else if (!text.empty()) text += "\n";
    std::ofstream out(file);
    out << text << section;
    std::fputs(section.c_str(), stdout);
    return static_cast<bool>(out);
}

}  // namespace qv::accuracy
