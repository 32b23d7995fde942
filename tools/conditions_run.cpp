// Runs a program as corebench-fleet runs corebench and prints the conditions of the run: the
// figures of fleet/conditions and the verdict on them (scripts/bench-disturbed).
//   conditions-run PROGRAM [ARGUMENTS...]
// The program's output passes through; the last two lines are this program's, on standard
// output: "conditions: name=value ..." (a figure the system does not give is "-") and
// "disturbed: " followed by the causes separated by "; ", "no" or "unknown". The exit status is
// the program's, 125 when it could not be started or did not end normally.

#include <QCoreApplication>
#include <QProcess>
#include <clocale>
#include <cstdio>

#include "conditions_probe.h"
#include "disturbance.h"

namespace {

// Often enough that a thread's figures are at most this old when it ends.
constexpr int kSampleIntervalMs = 250;

void printFigure(const char* name, const std::optional<double>& value) {
    if (value) {
        printf(" %s=%.3f", name, *value);
    } else {
        printf(" %s=-", name);
    }
}

void printFigure(const char* name, const std::optional<int>& value) {
    if (value) {
        printf(" %s=%d", name, *value);
    } else {
        printf(" %s=-", name);
    }
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    // The application object installs the user's locale; the figures keep a full stop.
    setlocale(LC_NUMERIC, "C");
    QStringList arguments = application.arguments().mid(1);
    if (arguments.isEmpty()) {
        fprintf(stderr, "usage: conditions-run PROGRAM [ARGUMENTS...]\n");
        return 125;
    }
    QProcess process;
    process.setProgram(arguments.takeFirst());
    process.setArguments(arguments);
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start();
    if (!process.waitForStarted(-1)) {
        fprintf(stderr, "conditions-run: cannot start %s: %s\n", qPrintable(process.program()),
                qPrintable(process.errorString()));
        return 125;
    }
    ConditionsWatch watch(systemConditionsProbe(process.processId()));
    while (!process.waitForFinished(kSampleIntervalMs)) {
        watch.sample();
    }
    const RunConditions conditions = watch.finish(0);
    fflush(stdout);
    printf("conditions:");
    printFigure("wall_s", std::optional<double>(conditions.wallS));
    printFigure("process_cpu_s", conditions.processCpuS);
    printFigure("worker_threads", conditions.workerThreads);
    printFigure("allowed_cpus", conditions.allowedCpus);
    printFigure("machine_cpus", conditions.machineCpus);
    printFigure("cpu_share", conditions.cpuShare);
    printFigure("wait_share", conditions.waitShare);
    printFigure("other_cpus_allowed", conditions.otherCpusAllowed);
    printFigure("other_cpus_machine", conditions.otherCpusMachine);
    printFigure("other_share", conditions.otherShareOfWorkerCpus);
    printFigure("steal_share", conditions.stealShare);
    printFigure("load_before", conditions.loadBefore);
    const std::optional<std::vector<std::string>> causes = disturbanceCauses(conditions);
    std::string verdict = !causes ? "unknown" : causes->empty() ? "no" : "";
    for (size_t i = 0; causes && i < causes->size(); ++i) {
        verdict += (i > 0 ? "; " : "") + (*causes)[i];
    }
    printf("\ndisturbed: %s\n", verdict.c_str());
    if (process.exitStatus() != QProcess::NormalExit) {
        return 125;
    }
    return process.exitCode();
}
