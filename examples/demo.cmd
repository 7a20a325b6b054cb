# A small power grid simulated by ngspice (demo.cir -> demo.raw): list its analyses and signals.
openSimData demo.raw
displayAnalysis
selectAnalysis tran
displaySignals
done
