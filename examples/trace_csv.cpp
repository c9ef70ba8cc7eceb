// Takes one power-versus-time trace and writes it as CSV (C++).
//
//   trace_csv_cpp SERIAL SWEEP_US FILE.csv
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <qv_api2.h>

namespace {

// Throws unless an export gave the code that means success for it.
void Check(const char* what, std::int32_t code, std::int32_t success = QV_SUCCESS) {
    if (code != success) throw std::runtime_error(std::string(what) + " returned " + std::to_string(code));
}

struct Held {
    std::string serial;
    ~Held() { (void)QV_UninitializeSensor_SN(serial.c_str()); }
};

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 4) {
        std::cerr << "usage: trace_csv_cpp SERIAL SWEEP_US FILE.csv\n";
        return 2;
    }
    const std::string serial = argv[1];
    const std::int32_t sweepUs = std::atoi(argv[2]);
    if (QV_InitializeSensor_SN(serial.c_str()) < 1) throw std::runtime_error("cannot initialise " + serial);
    Held held{serial};
    const std::int32_t address = QV_GetAddress_SN(serial.c_str());
    if (address < 1) Check("QV_GetAddress_SN", address);
    const auto a = static_cast<std::uint32_t>(address);
    Check("PP_SetSweepTime", PP_SetSweepTime(a, sweepUs));
    Check("PP_SetTriggerSoure", PP_SetTriggerSoure(a, QV_PP_TRIGGER_AUTO));

    const std::int32_t length = PP_GetTraceLength(address);
    if (length < 1) Check("PP_GetTraceLength", length);
    std::vector<double> trace(static_cast<std::size_t>(length));
    std::int32_t got = 0;
    Check("PP_GetTrace", PP_GetTrace(address, trace.data(), length, &got), QV_PP_TRACE_OK);

    std::ofstream out(argv[3]);
    out << "time_s,power_dbm\n";
    for (std::int32_t k = 0; k < got; ++k)
        out << k * sweepUs * 1e-6 / (got > 1 ? got - 1 : 1) << "," << trace[static_cast<std::size_t>(k)] << "\n";
    out.close();
    if (!out) throw std::runtime_error(std::string("cannot write ") + argv[3]);
    std::cout << got << " points over " << sweepUs << " us written to " << argv[3] << "\n";
    return 0;
} catch (const std::exception& e) {
    std::cerr << e.what() << "\n";
    return 1;
}
