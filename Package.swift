// swift-tools-version: 5.9
import PackageDescription

let package = Package(
    name: "CorvaneDeviceManager",
    platforms: [.iOS(.v15), .macOS(.v12)],
    products: [
        .library(name: "CorvaneDeviceManager", targets: ["CorvaneDeviceManager"])
    ],
    targets: [
        // The target is the whole repository, so that includes read as everywhere: "corvane/corvane.h".
        .target(
            name: "CorvaneDeviceManager",
            path: ".",
            exclude: [
                "benchmarks", "cmake", "docs", "emulators", "examples", "fuzz", "sessions", "tests", "tools",
                "corvane/platform/bluez", "corvane/platform/simulated",
                "CMakeLists.txt", "CMakePresets.json", "run", "test",
            ],
            sources: [
                "corvane/framework",
                "corvane/devices",
                "corvane/platform/platform.cpp",
                "corvane/platform/corebluetooth",
            ],
            resources: [.copy("corvane/platform/corebluetooth/PrivacyInfo.xcprivacy")],
            publicHeadersPath: ".",
            linkerSettings: [
                .linkedFramework("CoreBluetooth"),
                .linkedFramework("Foundation"),
            ]
        )
    ],
    cxxLanguageStandard: .cxx20
)
