# A small power grid simulated by ngspice (demo.cir -> demo.raw): list its analyses and signals.
openSimData demo.raw
displayAnalysis
selectAnalysis tran
displaySignals
# Check every resistor of the grid (demo.net) over the whole simulation and save the results.
loadNetlist demo.net
ignore negative_currents
ignore positive_currents
ACAnlaysis
run 0 12e-9
saveResult demo_result.txt
done
