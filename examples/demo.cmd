openSimData demo.raw
displayAnalysis
done
