// Takes CW readings of one sensor in a loop (C++): the sensor is held by an
// object that releases it on every path, and a failed reading releases it and
// initialises it again, waiting up to ten seconds for it to come back: this
// recovers a sensor that was unplugged and plugged in again.
//
//   cw_readings_cpp SERIAL [FREQUENCY_HZ] [COUNT]
#include <chrono>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <qv_api2.h>

class Sensor {
public:
    Sensor(std::string serial, double frequencyHz) : serial_(std::move(serial)) {
        if (QV_InitializeSensor_SN(serial_.c_str()) < 1)
            throw std::runtime_error("cannot initialise " + serial_);
        address_ = QV_GetAddress_SN(serial_.c_str());
        if (address_ < 1 || QV_SetFrequency(address_, frequencyHz) != QV_SUCCESS ||
            QV_SetAverages(address_, 16) != QV_SUCCESS) {
            (void)QV_UninitializeSensor_SN(serial_.c_str());
            throw std::runtime_error("cannot set up " + serial_);
        }
    }
    ~Sensor() { (void)QV_UninitializeSensor_SN(serial_.c_str()); }
    Sensor(const Sensor&) = delete;
    Sensor& operator=(const Sensor&) = delete;

    // The reading in the sensor's unit (dBm unless changed), or the result code.
    bool Measure(double& reading, std::int32_t& code) const {
        code = QV_MeasureCW(address_, &reading);
        return code == QV_SUCCESS;
    }

private:
    std::string serial_;
    std::int32_t address_ = 0;
};

int main(int argc, char** argv) try {
    if (argc < 2) {
        std::cerr << "usage: cw_readings_cpp SERIAL [FREQUENCY_HZ] [COUNT]\n";
        return 2;
    }
    const std::string serial = argv[1];
    const double frequencyHz = argc > 2 ? std::atof(argv[2]) : 1e9;
    const int count = argc > 3 ? std::atoi(argv[3]) : 10;

    auto sensor = std::make_unique<Sensor>(serial, frequencyHz);
    int failures = 0;
    for (int i = 1; i <= count; ++i) {
        double reading = 0.0;
        std::int32_t code = 0;
        if (sensor->Measure(reading, code)) {
            std::cout << i << " " << std::fixed << std::setprecision(3) << reading << " dBm\n";
            continue;
        }
        std::cerr << "reading " << i << ": QV_MeasureCW returned " << code << "\n";
        if (++failures > 3) return 1;
        // Release first (initialising again needs the slot free), then wait
        // up to ten seconds for the sensor to be back on the bus.
        sensor.reset();
        for (int attempt = 1; !sensor; ++attempt) {
            try {
                sensor = std::make_unique<Sensor>(serial, frequencyHz);
            } catch (const std::runtime_error&) {
                if (attempt == 10) throw;
                std::cerr << "waiting for " << serial << "\n";
                std::this_thread::sleep_for(std::chrono::seconds(1));
            }
        }
    }
    return 0;
} catch (const std::exception& e) {
    std::cerr << e.what() << "\n";
    return 1;
}
